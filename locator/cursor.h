// Reading bits for the locator. Nothing outside the content that the walk is in can be read;
// content in fragments (X.691 10.9.3.8) reads as if the fragments stood together.
//
// The position never passes `end`, which is where the content or the present fragment ends. Where a
// fragment ends stands a seam: the length of the next one, which the slow halves step over.
#pragma once

#include <bit>
#include <cstring>

#include "locator/locator.h"

#define LOCATOR_INLINE [[gnu::always_inline]] inline

class LocatorCursor {
public:
    LOCATOR_INLINE explicit LocatorCursor(LocatorWalk& owner)
        : octets(owner.octets), count(owner.count), position(owner.position), end(owner.end),
          walk(owner) {}

    LOCATOR_INLINE void store() {
        walk.position = position;
        walk.end = end;
    }

    // 1 to 57 bits, the first one highest.
    LOCATOR_INLINE bool take(uint32_t bits, uint64_t& value) {
        if (bits > end - position) [[unlikely]] {
            return slowly([&] { return takeAcross(walk, bits, value); });
        }
        value = window() >> (64 - bits);
        position += bits;
        return true;
    }

    // The same with the bits highest in value, whatever may stand below them.
    LOCATOR_INLINE bool takeHigh(uint32_t bits, uint64_t& value) {
        if (bits > end - position) [[unlikely]] {
            const bool done = slowly([&] { return takeAcross(walk, bits, value); });
            value <<= 64 - bits;
            return done;
        }
        value = window();
        position += bits;
        return true;
    }

    LOCATOR_INLINE bool skip(uint64_t bits) {
        if (bits > end - position) [[unlikely]] {
            return slowly([&] { return skipAcross(walk, bits); });
        }
        position += static_cast<size_t>(bits);
        return true;
    }

    LOCATOR_INLINE void align() { position = (position + 7) & ~size_t{7}; }

    // A length determinant without upper bound. more: the length is one fragment's.
    LOCATOR_INLINE bool length(size_t& value, bool& more) {
        align();
        more = false;
        if (end - position >= 8 && octets[position / 8] < 0x80) [[likely]] {
            value = octets[position / 8];
            position += 8;
            return true;
        }
        return slowly([&] { return longLength(walk, value, more); });
    }

    // Steps over a length and that many items of so many bits, in all its fragments.
    LOCATOR_INLINE bool skipVariable(uint32_t itemBits) {
        size_t items = 0;
        bool more = false;
        do {
            if (!length(items, more) || !skip(uint64_t{items} * itemBits)) {
                return false;
            }
        } while (more);
        return true;
    }

    // Content of so many octets begins at the aligned position, or with this fragment. outerEnd
    // keeps what leave needs.
    LOCATOR_INLINE bool enter(size_t length, bool fragmented, size_t& outerEnd) {
        if (fragmented || walk.seamCount != 0 || length > (end - position) / 8) [[unlikely]] {
            return slowly([&] { return enterAcross(walk, length, fragmented, outerEnd); });
        }
        outerEnd = end;
        end = position + length * 8;
        return true;
    }

    // The position goes behind the content.
    LOCATOR_INLINE void leave(size_t outerEnd) {
        if (walk.seamCount != 0) [[unlikely]] {
            slowly([&] { return leaveAcross(walk, outerEnd); });
            return;
        }
        position = end;
        end = outerEnd;
    }

    const uint8_t* const octets;
    const size_t count;
    size_t position; // both in bits
    size_t end;

private:
    // The next 57 bits at least, in the highest ones; zero behind the octets.
    LOCATOR_INLINE uint64_t window() const {
        const size_t index = position / 8;
        uint64_t word = 0;
        if (count - index >= sizeof word) [[likely]] {
            std::memcpy(&word, octets + index, sizeof word);
            if constexpr (std::endian::native == std::endian::little) {
                word = __builtin_bswap64(word);
            }
        } else {
            for (size_t i = index; i < count; ++i) {
                word |= uint64_t{octets[i]} << (8 * (7 - (i - index)));
            }
        }
        return word << (position % 8);
    }

    // The slow halves work on the walk, so that position and end can stay in registers here.
    template <typename Slow> LOCATOR_INLINE bool slowly(Slow slow) {
        store();
        const bool done = slow();
        position = walk.position;
        end = walk.end;
        return done;
    }

    static bool takeAcross(LocatorWalk& walk, uint32_t bits, uint64_t& value);
    static bool skipAcross(LocatorWalk& walk, uint64_t bits);
    static bool longLength(LocatorWalk& walk, size_t& value, bool& more);
    static bool enterAcross(LocatorWalk& walk, size_t length, bool fragmented, size_t& outerEnd);
    static bool leaveAcross(LocatorWalk& walk, size_t outerEnd);

    LocatorWalk& walk;
};
