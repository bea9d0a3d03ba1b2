#include "nat/wall_clock.h"

#include <ctime>

static uint32_t systemClockSeconds() {
    return static_cast<uint32_t>(std::time(nullptr));
}

WallClock wallClockSeconds = systemClockSeconds;
