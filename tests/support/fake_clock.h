// Puts a clock that stands still in the place of the wall clock.
#pragma once

#include <cstdint>

#include "nat/wall_clock.h"

class FakeClock {
public:
    explicit FakeClock(uint32_t seconds) : before(wallClockSeconds) {
        now = seconds;
        wallClockSeconds = [] { return now; };
    }
    ~FakeClock() { wallClockSeconds = before; }
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    void set(uint32_t seconds) { now = seconds; }
    void advance(uint32_t seconds) { now += seconds; }

private:
    static inline uint32_t now = 0;
    WallClock before;
};
