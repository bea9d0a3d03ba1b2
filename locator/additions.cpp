// Extension additions of a SEQUENCE: their count, their presence bits, their open types.
#include "locator/walk.h"

namespace locating {

// X.691 10.6: a number that is usually small.
bool Walk::smallNumber(uint64_t& number) {
    uint64_t bits = 0;
    if (!cursor.take(1, bits)) {
        return false;
    }
    if (bits == 0) {
        return cursor.take(6, number);
    }
    size_t octets = 0;
    bool more = false;
    return cursor.length(octets, more) && !more && octetsOfNumber(octets, number);
}

bool Walk::octetsOfNumber(size_t octets, uint64_t& number) {
    constexpr size_t most = 4;
    number = 0;
    return octets == 0 ||
           (octets <= most && cursor.take(static_cast<uint32_t>(octets * octetBits), number));
}

Then Walk::beginAdditions(uint32_t argument) {
    constexpr uint64_t maskBits = 64;
    uint64_t count = 0;
    if (!cursor.take(7, count)) {
        return Then::refuse;
    }
    ++count;
    if (count > maskBits) { // the first bit says that a length determinant follows (X.691 10.9.3.4)
        cursor.position -= 6;
        size_t length = 0;
        bool more = false;
        if (!cursor.length(length, more) || more) {
            return Then::refuse;
        }
        count = length;
        if (length <= maskBits) {
            // No count of additions, but the octets of one that is coded as a number (X.691 10.6),
            // which is how the codecs read it.
            if (!octetsOfNumber(length, count)) {
                return Then::refuse;
            }
            ++count;
        }
    }
    uint64_t known = count < maskBits ? count : maskBits;
    uint64_t unknown = count - known;
    uint64_t mask = 0;
    for (uint64_t left = known; left != 0;) {
        const auto bits = static_cast<uint32_t>(left < 57 ? left : 32);
        uint64_t part = 0;
        if (!cursor.take(bits, part)) {
            return Then::refuse;
        }
        left -= bits;
        mask |= part << (maskBits - known + left);
    }
    frame->remaining = 0;
    for (; unknown != 0; --unknown) {
        uint64_t bit = 0;
        if (!cursor.take(1, bit)) {
            return Then::refuse;
        }
        frame->remaining += static_cast<uint32_t>(bit);
    }
    frame->presence = mask;
    frame->index = static_cast<uint32_t>(pc);
    frame->pc = static_cast<uint16_t>(pc + 1 + argument);
    return nextAddition();
}

// On in the additions of the frame: their presence bits stand in it, those behind the current one.
Then Walk::nextAddition() {
    constexpr unsigned wordBits = 16;
    uint64_t mask = frame->presence;
    uint64_t withPlaces = 0;
    const unsigned maskWords = locatorProgram[frame->index] >> argumentShift;
    for (unsigned i = 1; i <= maskWords; ++i) {
        withPlaces |= uint64_t{locatorProgram[frame->index + i]} << (64 - wordBits * i);
    }
    unsigned entry = frame->pc;
    for (;;) {
        if ((mask & withPlaces) == 0 && frame->rest != noRest) {
            return Then::unwind;
        }
        if (mask == 0) {
            break;
        }
        const auto number = static_cast<uint16_t>(std::countl_zero(mask));
        mask &= ~(uint64_t{1} << (63 - number));
        while (locatorProgram[entry] < number) {
            entry += 2;
        }
        if (locatorProgram[entry] == number) {
            size_t length = 0;
            bool more = false;
            if (!cursor.length(length, more) || !cursor.enter(length, more, frame->outerEnd)) {
                return Then::refuse;
            }
            presence = mask;
            frame->at = static_cast<uint16_t>(entry);
            frame->pc = static_cast<uint16_t>(entry);
            frame->state = additions;
            return pushed(locatorProgram[entry + 1], here());
        }
        if (!skipOpenType()) {
            return Then::refuse;
        }
    }
    for (; frame->remaining != 0; --frame->remaining) {
        if (!skipOpenType()) {
            return Then::refuse;
        }
    }
    return Then::pop;
}

} // namespace locating
