// What a message says beside its addresses, found by the locator: for the calls that the full scope
// follows, and for observers in both scopes.
#pragma once

#include "include/h323nat.h"
#include "locator/locator.h"
#include "locator/path_names.h"

struct MessageFacts {
    uint16_t alternative; // of the outermost CHOICE of bodies, locatorAlternative::...; 0: none
    const uint8_t* callIdentifier; // 16 octets of the message, or null
    bool isSigned;                 // it carries tokens over its content
    bool hasAddresses;
    LocatedPlace calling; // the first alias of either party in a Setup; length 0: none
    LocatedPlace called;
    LocateStatus status;
    H323Octets name;              // "setup"; none when it was not asked for
    char path[placePathCapacity]; // holds the name
};

// Reads a whole message. `named` asks for its name and its aliases, which costs looks into the
// tables of names.
void readFacts(LocatedType type, const uint8_t* octets, size_t count, bool named,
               MessageFacts& facts);

// Sets what the message itself says in the record for observers: flags, name, call identifier and
// octets.
void describeMessage(const MessageFacts& facts, const uint8_t* octets, size_t count,
                     H323ObservedMessage& event);
