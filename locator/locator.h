// Where the IPv4 addresses of an encoded message lie, and a few other things that tell what the
// message is about. Walks aligned PER (ITU-T X.691) by tables that asn1gen makes from the modules
// of today and from places.txt; builds no value and takes no heap.
//
// Messages of any version can be walked: unknown extension additions and unknown alternatives of
// extensible CHOICEs are passed over by their length. Messages inside octet strings (fastStart,
// h245Control, parallelH245Control) are walked where they stand.
//
//     LocatorWalk walk;
//     LocatedPlace place;
//     startLocating(walk, LocatedType::userInformation, octets, count);
//     while (nextPlace(walk, place)) { ... }
//
// Work is linear in the number of octets. Not for several threads at once on one LocatorWalk.
#pragma once

#include <cstddef>
#include <cstdint>

// Top-level types, in the order of places.txt.
enum class LocatedType : uint8_t {
    userInformation,      // H.225.0 H323-UserInformation, contents of the User-user element
    rasMessage,           // H.225.0 RasMessage
    systemControlMessage, // H.245 MultimediaSystemControlMessage
    openLogicalChannel,   // H.245 OpenLogicalChannel, a fast-start element
};

// What stands at a place. places.txt lists which places of these kinds are told.
enum class PlaceKind : uint8_t {
    address,         // 4 octets of an IPv4 address, 2 of a port: unicast, or a source route's end
    callIdentifier,  // 16 octets
    alias,           // characters of an AliasAddress
    messageBody,     // alternative of a CHOICE of messages; H.245 has an outer and an inner one
    dataType,        // alternative of an OpenLogicalChannel's DataType, forward and reverse
    dataApplication, // alternative of the data application in such a DataType
    channelNumber,   // a logical channel's number
    token,           // tokens or check value over the message's content
};
constexpr uint32_t placeKindCount = 8;
constexpr uint32_t allPlaceKinds = (1U << placeKindCount) - 1;

constexpr uint32_t placeKindBit(PlaceKind kind) {
    return 1U << static_cast<uint32_t>(kind);
}

struct LocatedPlace {
    PlaceKind kind;
    // The nearest SEQUENCE or CHOICE around the place that is not an address itself, and its
    // member: a constant of namespace locatorField in "locator/fields.h". mediaChannel is one field
    // wherever its type stands.
    uint16_t field;
    // Number of the alternative chosen last on the way, from 1 in the module's order, those behind
    // the extension marker included: of messageBody, dataType and dataApplication the one told, of
    // alias which form it has. Constants of namespace locatorAlternative in "locator/fields.h".
    // 0: an alternative that the tables do not know.
    uint16_t alternative;
    uint16_t port;         // address: host byte order
    uint32_t address;      // address: host byte order, 10.0.0.5 is 0x0A000005
    uint32_t value;        // channelNumber: the number; alias: count of characters
    size_t offset;         // octets from the start of the encoding to the place
    size_t length;         // octets of the place; 0 where nothing but the fact is told
    uint8_t characterBits; // alias: 4 (digits, see aliasCharacters), 8, or 16 (big-endian)
    // Number of the way from the top-level type down, indexes of lists left out: equal for the same
    // way in every message. For names see "locator/path_names.h".
    uint32_t path;
};

enum class LocateStatus : uint8_t {
    more,      // nextPlace has not come to the end
    complete,  // the end, or a point behind which no place can be
    malformed, // makes no sense from some point on; the places before it were given
    tooDeep,   // nested deeper than locatorDepth, or in more fragments than locatorSeams
};

constexpr size_t locatorDepth = 128;
constexpr size_t locatorSeams = 16;

// Nothing in here is for callers but what has a comment.
struct LocatorFrame {
    uint64_t presence;
    size_t outerEnd;
    uint32_t remaining;
    uint32_t index;
    uint32_t path;
    uint16_t pc;
    uint16_t at;
    uint16_t rest;
    uint8_t state;
    uint8_t flags;
};

struct LocatorSeam {
    size_t start;
    size_t length;
};

// One walk through one message. Lives where the caller puts it, about 6 KB, of which starting
// touches some 100 octets. The message's octets must stay readable for as long as nextPlace is
// called; the octets of places that were given may be overwritten meanwhile.
struct LocatorWalk {
    const uint8_t* octets;
    size_t count;
    size_t position;
    size_t end;
    size_t contentEnd;
    uint32_t kinds;
    uint16_t top;
    uint16_t field;
    uint16_t alternative;
    uint16_t seam;
    uint16_t seamCount;
    LocateStatus status;      // why nextPlace returned false
    uint32_t splitAddresses;  // addresses met whose octets do not stand together, not given
    uint32_t refusedElements; // messages in octet strings that made no sense, passed over
    LocatorSeam seams[locatorSeams];
    LocatorFrame frames[locatorDepth];
};

// Begins a walk. kinds, a sum of placeKindBit, says what nextPlace gives; the rest of the walk is
// the same. Cannot fail: what is wrong with the octets shows in nextPlace.
void startLocating(LocatorWalk& walk, LocatedType type, const uint8_t* octets, size_t count,
                   uint32_t kinds = allPlaceKinds);

// The next place in order of offsets. False at the end, and from then on; walk.status says why.
bool nextPlace(LocatorWalk& walk, LocatedPlace& place);

// The indexes of the list elements on the way to the place given last, outermost first; returns how
// many there are and writes at most capacity of them.
size_t placeIndexes(const LocatorWalk& walk, uint32_t* indexes, size_t capacity);

// The characters of an alias, one octet each, two for an h323-ID; returns how many octets there are
// and writes at most capacity of them. octets is what the walk was started with.
size_t aliasCharacters(const uint8_t* octets, const LocatedPlace& place, char* text,
                       size_t capacity);
