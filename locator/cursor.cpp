#include "locator/cursor.h"

namespace {

constexpr size_t octetBits = 8;
constexpr size_t fragmentUnit = 16384;

size_t least(size_t a, size_t b) {
    return a < b ? a : b;
}

void limit(LocatorWalk& walk) {
    walk.end = walk.contentEnd;
    if (walk.seam < walk.seamCount) {
        walk.end = least(walk.end, walk.seams[walk.seam].start * octetBits);
    }
}

// At the end of a fragment: on to the next one. False at the end of the content.
bool cross(LocatorWalk& walk) {
    if (walk.seam >= walk.seamCount || walk.position != walk.seams[walk.seam].start * octetBits) {
        return false;
    }
    const size_t next = walk.position + walk.seams[walk.seam].length * octetBits;
    if (next > walk.contentEnd) {
        return false;
    }
    walk.position = next;
    ++walk.seam;
    limit(walk);
    return true;
}

// A place in the stream of octets that an outer content is: its seams are stepped over. Ahead of
// the position only, and without moving it.
struct Ahead {
    size_t octet;
    uint16_t seam;
};

// On by `octets`; does not step over a seam behind the last one.
bool advance(const LocatorWalk& walk, size_t limitOctet, Ahead& ahead, size_t octets) {
    while (ahead.seam < walk.seamCount && octets > walk.seams[ahead.seam].start - ahead.octet) {
        octets -= walk.seams[ahead.seam].start - ahead.octet;
        ahead.octet = walk.seams[ahead.seam].start + walk.seams[ahead.seam].length;
        ++ahead.seam;
    }
    if (ahead.octet > limitOctet || octets > limitOctet - ahead.octet) {
        return false;
    }
    ahead.octet += octets;
    return true;
}

bool readAhead(const LocatorWalk& walk, size_t limitOctet, Ahead& ahead, uint8_t& octet) {
    if (!advance(walk, limitOctet, ahead, 1)) {
        return false;
    }
    octet = walk.octets[ahead.octet - 1];
    return true;
}

// The seam takes the place of those of outer fragments that lie in it.
bool addSeam(LocatorWalk& walk, const LocatorSeam& seam, uint16_t first, uint16_t behind) {
    const uint16_t replaced = static_cast<uint16_t>(behind - first);
    if (walk.seamCount - replaced + 1U > locatorSeams) {
        walk.status = LocateStatus::tooDeep;
        return false;
    }
    std::memmove(&walk.seams[first + 1], &walk.seams[behind],
                 (walk.seamCount - behind) * sizeof(LocatorSeam));
    walk.seams[first] = seam;
    walk.seamCount = static_cast<uint16_t>(walk.seamCount - replaced + 1);
    return true;
}

} // namespace

bool LocatorCursor::takeAcross(LocatorWalk& walk, uint32_t bits, uint64_t& value) {
    value = 0;
    while (bits != 0) {
        while (walk.position == walk.end) {
            if (!cross(walk)) {
                return false;
            }
        }
        const uint64_t octet = walk.octets[walk.position / octetBits];
        value = value << 1 | (octet >> (7 - walk.position % octetBits) & 1U);
        ++walk.position;
        --bits;
    }
    return true;
}

bool LocatorCursor::skipAcross(LocatorWalk& walk, uint64_t bits) {
    while (bits > walk.end - walk.position) {
        bits -= walk.end - walk.position;
        walk.position = walk.end;
        if (!cross(walk)) {
            return false;
        }
    }
    walk.position += static_cast<size_t>(bits);
    return true;
}

bool LocatorCursor::longLength(LocatorWalk& walk, size_t& value, bool& more) {
    uint64_t first = 0;
    if (!takeAcross(walk, octetBits, first)) {
        return false;
    }
    if (first < 0x80) {
        value = static_cast<size_t>(first);
        return true;
    }
    if (first < 0xC0) {
        uint64_t second = 0;
        if (!takeAcross(walk, octetBits, second)) {
            return false;
        }
        value = static_cast<size_t>((first & 0x3F) << octetBits | second);
        return true;
    }
    // X.691 permits 1 to 4 units; the decoders take any number, so that the walk has to.
    value = static_cast<size_t>(first & 0x3F) * fragmentUnit;
    more = true;
    return true;
}

bool LocatorCursor::enterAcross(LocatorWalk& walk, size_t length, bool fragmented,
                                size_t& outerEnd) {
    if (walk.seamCount == 0) {
        walk.contentEnd = walk.end;
    }
    // Seams behind the position make room.
    walk.seamCount = static_cast<uint16_t>(walk.seamCount - walk.seam);
    std::memmove(walk.seams, &walk.seams[walk.seam], walk.seamCount * sizeof(LocatorSeam));
    walk.seam = 0;
    const size_t limitOctet = walk.contentEnd / octetBits;
    Ahead ahead{walk.position / octetBits, 0};
    if (!advance(walk, limitOctet, ahead, length)) {
        return false;
    }
    while (fragmented) {
        const size_t start = ahead.octet;
        const uint16_t firstSeam = ahead.seam;
        uint8_t head = 0;
        if (!readAhead(walk, limitOctet, ahead, head)) {
            return false;
        }
        size_t next = head;
        if (head >= 0xC0) {
            next = (head & 0x3FU) * fragmentUnit;
        } else if (head >= 0x80) {
            uint8_t low = 0;
            if (!readAhead(walk, limitOctet, ahead, low)) {
                return false;
            }
            next = (head & 0x3FU) << octetBits | low;
        }
        fragmented = head >= 0xC0;
        if (!addSeam(walk, {start, ahead.octet - start}, firstSeam, ahead.seam)) {
            return false;
        }
        ahead.seam = static_cast<uint16_t>(firstSeam + 1);
        if (!advance(walk, limitOctet, ahead, next)) {
            return false;
        }
    }
    outerEnd = walk.contentEnd;
    walk.contentEnd = ahead.octet * octetBits;
    limit(walk);
    return true;
}

bool LocatorCursor::leaveAcross(LocatorWalk& walk, size_t outerEnd) {
    walk.position = walk.contentEnd;
    walk.contentEnd = outerEnd;
    while (walk.seam < walk.seamCount && walk.seams[walk.seam].start < walk.position / octetBits) {
        ++walk.seam;
    }
    if (walk.seam == walk.seamCount) {
        walk.seam = 0;
        walk.seamCount = 0;
    }
    limit(walk);
    return true;
}
