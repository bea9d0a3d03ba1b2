#pragma once

#include <cstddef>
#include <string>

namespace cli {

/// How much fits on a terminal.
struct ScreenSize {
    size_t rows = 24;
    size_t columns = 80;
};

/// One screen of a gateway's status: totals, rates since the status before, `seconds` ago, and
/// calls with their verdicts. Both are JSON of the gateway; `before` may be empty. Throws
/// nlohmann::json::exception when they make no sense.
std::string watchScreen(const std::string& status, const std::string& before, double seconds,
                        const ScreenSize& size);

/// Shows the status of the gateway at the socket, redrawn every `interval` seconds in place, until
/// the user stops it. Gives an empty text, or what went wrong.
std::string watchStatus(const std::string& socket, double interval);

} // namespace cli
