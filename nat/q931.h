// The information elements of a Q.931 message inside a TPKT frame (RFC 1006): finding the user
// information that H.225.0 puts into the User-user element.
//
// The walk starts at octet 9, behind the TPKT header (4 octets), the protocol discriminator, a call
// reference of two octets and the message type; none of these is looked at. Call references of
// other lengths do not occur in H.225.0.
#pragma once

#include <cstddef>
#include <cstdint>

// One message and how far it has been walked. The walk never reads at or beyond `length`.
struct Q931Walk {
    const uint8_t* message; // first octet of the TPKT header
    size_t length;          // octets of the message, the TPKT header included
    size_t offset;          // of the next information element
};

// What nextUserInformation found.
enum class Q931Element {
    UserInformation, // the user information of a User-user element
    End,             // no further element; an element cut off by the message's end counts as none
    BeyondMessage,   // a User-user element that claims more octets than the message has
};

// A range of octets, counted from the start of the message.
struct OctetRange {
    size_t offset;
    size_t octets; // may be 0
};

// Starts a walk over the `length` octets at `message`, which must stay valid during the walk. A
// message of 9 octets or less has no elements.
Q931Walk walkQ931(const uint8_t* message, size_t length);

// Steps to the next User-user element and stores the range of its PER encoding, the protocol
// discriminator excluded, in `range`. Other elements are stepped over. `range` is set only for
// UserInformation.
Q931Element nextUserInformation(Q931Walk& walk, OctetRange& range);

// The Q.850 cause value of the message's Cause element (Q.931 4.5.12); 0 when it has none.
uint8_t causeOfRelease(const uint8_t* message, size_t length);

inline constexpr size_t tpktHeader = 4; // octets of a TPKT header

// The length that a TPKT header states, itself included. Reads 4 octets.
inline size_t tpktLength(const uint8_t* header) {
    return static_cast<size_t>(header[2]) << 8 | header[3];
}
