#pragma once

#include "gateway/capture_file.h"

#include <algorithm>
#include <cstdint>
#include <string>

// Times of captures as reports write them.
namespace gateway {

constexpr int64_t nanosecondsPerSecond = 1'000'000'000;

// A damaged file tells any time: those of no calendar are cut, so that differences fit as well.
inline int64_t nanosecondsOf(const CaptureTime& time) {
    constexpr int64_t most = INT64_MAX / nanosecondsPerSecond / 2 - 1;
    return std::clamp(time.seconds, -most, most) * nanosecondsPerSecond + time.nanoseconds;
}

// RFC 3339 in UTC, with microseconds unless the capture has more: "2026-11-23T14:04:00.083387Z".
std::string timestampText(const CaptureTime& time);

// Seconds with as many digits: "0.003300".
std::string secondsText(int64_t nanoseconds);

} // namespace gateway
