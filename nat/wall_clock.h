// The module's only clock: calendar time in whole seconds.
#pragma once

#include <cstdint>

using WallClock = uint32_t (*)();

// Points to the system's clock. Tests put their own in its place.
extern WallClock wallClockSeconds;

// Records are given up when they were idle for longer than this.
inline constexpr int32_t idleSeconds = 60;

// True when more than idleSeconds passed between lastActivity and now. The difference is signed, so
// a clock that was set back makes nothing idle.
inline bool isIdle(uint32_t now, uint32_t lastActivity) {
    return static_cast<int32_t>(now - lastActivity) > idleSeconds;
}
