// What of a heap block is handed out, told to the address sanitizer: it sees no overrun inside a
// block otherwise. Other builds do nothing.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define PER_HEAP_POISONED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PER_HEAP_POISONED 1
#endif
#endif

#ifdef PER_HEAP_POISONED
#include <sanitizer/asan_interface.h>
#endif

// No access is allowed from now on.
inline void pu_poison([[maybe_unused]] const void* memory, [[maybe_unused]] size_t octets) {
#ifdef PER_HEAP_POISONED
    __asan_poison_memory_region(memory, octets);
#endif
}

// Access is allowed to exactly these octets, which begin at a multiple of 8. Returns `memory`;
// null is allowed.
inline void* pu_handOut(void* memory, [[maybe_unused]] size_t octets) {
#ifdef PER_HEAP_POISONED
    if (memory != nullptr) {
        __asan_unpoison_memory_region(memory, octets);
    }
#endif
    return memory;
}
