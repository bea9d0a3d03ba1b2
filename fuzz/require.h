// A promise of the module that a target checks itself. A broken one ends the process, so that the
// fuzzer keeps the input; the text names the promise, the stack shows where.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzzing {

inline void require(bool holds, const char* promise) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "broken promise: %s\n", promise));
        std::abort();
    }
}

} // namespace fuzzing
