// The module's only clock: calendar time in whole seconds.
#pragma once

#include <cstdint>

using WallClock = uint32_t (*)();

// Points to the system's clock. Tests put their own in its place.
extern WallClock wallClockSeconds;

// Records are given up when they were idle for longer than this.
inline constexpr uint32_t idleSeconds = 60;

// Seconds from `past` to `now`. A clock that was set back makes nothing old: it gives 0 then.
inline uint32_t secondsBetween(uint32_t past, uint32_t now) {
    const auto passed = static_cast<int32_t>(now - past);
    return passed > 0 ? static_cast<uint32_t>(passed) : 0;
}

inline bool isIdle(uint32_t now, uint32_t lastActivity) {
    return secondsBetween(lastActivity, now) > idleSeconds;
}
