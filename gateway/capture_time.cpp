#include "gateway/capture_time.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace gateway {
namespace {

std::string fraction(int64_t nanoseconds) {
    constexpr size_t digits = 9;
    std::string text = std::to_string(nanoseconds);
    text.insert(0, digits - std::min(digits, text.size()), '0');
    return text.compare(6, 3, "000") == 0 ? text.substr(0, 6) : text;
}

} // namespace

std::string timestampText(const CaptureTime& time) {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    if (gmtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
        return std::to_string(time.seconds);
    }
    return std::string(text.data()) + '.' + fraction(time.nanoseconds) + 'Z';
}

std::string secondsText(int64_t nanoseconds) {
    const int64_t rest = nanoseconds % nanosecondsPerSecond;
    return (nanoseconds < 0 ? "-" : "") +
           std::to_string((nanoseconds < 0 ? -1 : 1) * (nanoseconds / nanosecondsPerSecond)) + '.' +
           fraction(rest < 0 ? -rest : rest);
}

} // namespace gateway
