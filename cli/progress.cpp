#include "cli/progress.h"

#include <cstdio>

#include <unistd.h>

namespace cli {
namespace {

constexpr std::chrono::milliseconds interval{200};
constexpr const char* clearLine = "\r\033[K";

} // namespace

Progress::Progress()
    : isTerminal_(isatty(STDERR_FILENO) == 1), next_(std::chrono::steady_clock::now() + interval) {}

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
    if (done >= 0) {
        std::fprintf(stderr, "%s%llu packets, %.0f %%", clearLine,
                     static_cast<unsigned long long>(packets), done * 100);
    } else {
        std::fprintf(stderr, "%s%llu packets", clearLine, static_cast<unsigned long long>(packets));
    }
    std::fflush(stderr);
}

void Progress::clear() {
    if (shown_) {
        std::fputs(clearLine, stderr);
        std::fflush(stderr);
        shown_ = false;
    }
}

} // namespace cli
