#include "cli/status_watch.h"

#include "cli/terminal.h"
#include "gateway/live/status.h"
#include "gateway/live/status_socket.h"

#include <nlohmann/json.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <vector>

namespace cli {
namespace {

using nlohmann::json;

constexpr const char* hideCursor = "\033[?25l";
constexpr const char* showCursor = "\033[?25h";
constexpr const char* home = "\033[H";
constexpr const char* clearToEnd = "\033[J";
constexpr const char* clearLine = "\033[K";

volatile std::sig_atomic_t stopped = 0;

void stop(int /*signal*/) {
    stopped = 1;
}

/// Cut to columns; the octets that continue a character take none.
std::string cut(const std::string& text, size_t columns) {
    size_t used = 0;
    size_t at = 0;
    while (at < text.size()) {
        const bool continues = (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
        if (!continues && used++ == columns) {
            break;
        }
        ++at;
    }
    return text.substr(0, at);
}

std::string word(const json& object, const char* name) {
    return object.at(name).get<std::string>();
}

std::string rateOf(const json& status, const json& before, const char* counter, double seconds) {
    std::ostringstream text;
    const auto now = status.at("counters").at(counter).get<double>();
    if (before.is_null() || seconds <= 0) {
        return "-";
    }
    text << std::fixed << std::setprecision(1)
         << (now - before.at("counters").at(counter).get<double>()) / seconds;
    return text.str();
}

std::string callText(const json& call) {
    std::string caller = word(call, "from");
    std::string called = word(call, "to");
    const bool in = word(call, "direction") == "in";
    const std::string& inside = word(call, "inside");
    const std::string& remote = word(call, "remote");
    caller += (caller.empty() ? "" : " ") + (in ? remote : inside);
    called += (called.empty() ? "" : " ") + (in ? inside : remote);
    std::ostringstream text;
    text << std::setw(6) << call.at("call").get<uint64_t>() << std::setw(8)
         << call.at("seconds").get<int64_t>() << " s  " << caller << " → " << called << "  "
         << gateway::mediaText(call) << word(call, "verdict");
    return text.str();
}

ScreenSize screenSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

} // namespace

std::string watchScreen(const std::string& status, const std::string& before, double seconds,
                        const ScreenSize& size) {
    const json now = json::parse(status);
    const json then = before.empty() ? json() : json::parse(before);
    std::vector<std::string> lines;
    lines.push_back("h323nat gateway: " + word(now, "inside") + " to " + word(now, "outside") +
                    " as " + word(now, "public") + ", up " +
                    std::to_string(now.at("uptime").get<int64_t>()) + " s");
    lines.push_back("calls " + std::to_string(now.at("call_total").get<uint64_t>()) +
                    "   mappings " + std::to_string(now.at("mapping_total").get<uint64_t>()) +
                    "   delay " + now.at("delay_us_median").dump() + " us");
    lines.push_back("each second: packets out " + rateOf(now, then, "packets_sent", seconds) +
                    ", in " + rateOf(now, then, "packets_received", seconds) + "; messages " +
                    rateOf(now, then, "messages_seen", seconds) + ", rewritten " +
                    rateOf(now, then, "messages_rewritten", seconds));
    lines.emplace_back();
    lines.emplace_back("  call    time    caller → called  verdict");
    for (const json& call : now.at("calls")) {
        lines.push_back(callText(call));
    }
    if (!now.at("ended_calls").empty()) {
        lines.emplace_back();
        lines.emplace_back("ended:");
        for (const json& call : now.at("ended_calls")) {
            lines.push_back(callText(call));
        }
    }
    std::string screen;
    for (size_t i = 0; i < lines.size() && i < size.rows; ++i) {
        const bool last = i + 1 == size.rows && i + 1 < lines.size();
        screen += (i == 0 ? "" : "\n") +
                  cut(last ? "and " + std::to_string(lines.size() - i) + " more lines"
                           : printable(lines[i]),
                      size.columns);
    }
    return screen;
}

std::string watchStatus(const std::string& socket, double interval) {
    using Clock = std::chrono::steady_clock;
    if (!isTerminal(Stream::Output)) {
        return "--watch needs a terminal; without it status prints once";
    }
    struct sigaction action {};
    action.sa_handler = stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::string before;
    std::string failure;
    auto last = Clock::now();
    std::cout << hideCursor << home << clearToEnd;
    while (stopped == 0 && std::cout) {
        std::string status;
        failure = gateway::readStatus(socket, status);
        if (!failure.empty()) {
            break;
        }
        const auto now = Clock::now();
        std::string screen;
        try {
            screen = watchScreen(status, before, std::chrono::duration<double>(now - last).count(),
                                 screenSize());
        } catch (const json::exception& error) {
            failure = std::string("the gateway's answer makes no sense: ") + error.what();
            break;
        }
        std::cout << home;
        for (const char character : screen) {
            std::cout << (character == '\n' ? std::string(clearLine) + "\n"
                                            : std::string(1, character));
        }
        std::cout << clearLine << clearToEnd << std::flush;
        before = std::move(status);
        last = now;
        const auto wholeSeconds = static_cast<time_t>(interval);
        const timespec pause{
            wholeSeconds, static_cast<long>((interval - static_cast<double>(wholeSeconds)) * 1e9)};
        nanosleep(&pause, nullptr);
    }
    std::cout << '\n' << showCursor << std::flush;
    return failure;
}

} // namespace cli
