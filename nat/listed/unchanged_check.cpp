#include "nat/listed/unchanged_check.h"

#include <algorithm>
#include <bitset>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifndef NDEBUG

namespace {

// Larger messages, which IPv4 cannot carry, are not checked.
constexpr size_t longestMessage = UINT16_MAX;

struct Remembered {
    const uint8_t* packet; // first octet of the message that lies in the packet
    size_t count;
    uint8_t octets[longestMessage];
    std::bitset<longestMessage> set;
};

// One message is open at a time.
Remembered& remembered() {
    static Remembered state;
    return state;
}

} // namespace

void rememberPacket(MessageOctets octets, PacketPlace place) {
    Remembered& state = remembered();
    const auto packetEnd = static_cast<ptrdiff_t>(place.length);
    const ptrdiff_t first = std::clamp<ptrdiff_t>(place.start, 0, packetEnd);
    const ptrdiff_t end =
        std::clamp<ptrdiff_t>(place.start + static_cast<ptrdiff_t>(octets.count), first, packetEnd);
    state.count = static_cast<size_t>(end - first);
    if (state.count > longestMessage) {
        state.count = 0;
    }
    state.packet = place.segment + first;
    if (state.count > 0) {
        std::memcpy(state.octets, state.packet, state.count);
    }
    state.set.reset();
}

void rememberSet(const uint8_t* octets, size_t count) {
    Remembered& state = remembered();
    const ptrdiff_t first = octets - state.packet;
    for (size_t i = 0; i < count; ++i) {
        const size_t index = static_cast<size_t>(first) + i;
        if (index < state.count) {
            state.set.set(index);
        }
    }
}

void checkPacket() {
    const Remembered& state = remembered();
    for (size_t i = 0; i < state.count; ++i) {
        if (state.packet[i] != state.octets[i] && !state.set[i]) {
            (void)std::fprintf(stderr, "octet %zu of a message changed that no rule set\n", i);
            std::abort();
        }
    }
}

#endif
