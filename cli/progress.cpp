#include "cli/progress.h"

#include "cli/terminal.h"

#include <cmath>
#include <iostream>

namespace cli {
namespace {

constexpr std::chrono::milliseconds interval{200};
constexpr const char* clearLine = "\r\033[K";

} // namespace

Progress::Progress()
    : isTerminal_(isTerminal(Stream::Error)), next_(std::chrono::steady_clock::now() + interval) {}

Progress::~Progress() {
    clear();
}

void Progress::show(uint64_t packets, double done) {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + interval;
    shown_ = true;
    std::cerr << clearLine << packets << " packets";
    if (done >= 0) {
        std::cerr << ", " << std::lround(done * 100) << " %";
    }
    std::cerr << std::flush;
}

void Progress::clear() {
    if (shown_) {
        std::cerr << clearLine << std::flush;
        shown_ = false;
    }
}

} // namespace cli
