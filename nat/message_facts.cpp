#include "nat/message_facts.h"

#include <cstring>

namespace {

// The path of a message body ends with its name.
void noteName(const LocatorWalk& walk, MessageFacts& facts) {
    const size_t length = placePath(walk, facts.path, sizeof facts.path);
    const char* end = facts.path + length;
    const char* name = end;
    while (name != facts.path && name[-1] != '.') {
        --name;
    }
    facts.name = {reinterpret_cast<const uint8_t*>(name), static_cast<uint32_t>(end - name)};
}

// Aliases stand in the source and in the destination address of a Setup.
void noteAlias(const LocatorWalk& walk, const LocatedPlace& place, MessageFacts& facts) {
    char path[placePathCapacity];
    placePath(walk, path, sizeof path);
    const bool destination = std::strstr(path, ".destinationAddress[") != nullptr;
    LocatedPlace& alias = destination ? facts.called : facts.calling;
    if (alias.length == 0) {
        alias = place;
    }
}

} // namespace

void readFacts(LocatedType type, const uint8_t* octets, size_t count, bool named,
               MessageFacts& facts) {
    facts.alternative = 0;
    facts.callIdentifier = nullptr;
    facts.isSigned = false;
    facts.hasAddresses = false;
    facts.calling.length = 0;
    facts.called.length = 0;
    facts.name = {};
    // H.245 names a message by two alternatives, one inside the other, others by one. Those that
    // follow are of messages inside.
    const uint32_t naming = type == LocatedType::systemControlMessage ? 2 : 1;
    uint32_t bodies = 0;
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, type, octets, count);
    while (nextPlace(walk, place)) {
        switch (place.kind) {
        case PlaceKind::messageBody:
            if (bodies == 0) {
                facts.alternative = place.alternative;
            }
            if (bodies < naming && named) {
                noteName(walk, facts);
            }
            ++bodies;
            break;
        case PlaceKind::callIdentifier:
            if (facts.callIdentifier == nullptr) {
                facts.callIdentifier = octets + place.offset;
            }
            break;
        case PlaceKind::alias:
            if (named) {
                noteAlias(walk, place, facts);
            }
            break;
        case PlaceKind::token:
            facts.isSigned = true;
            break;
        case PlaceKind::address:
            facts.hasAddresses = true;
            break;
        default:
            break;
        }
    }
    facts.status = walk.status;
}

void describeMessage(const MessageFacts& facts, const uint8_t* octets, size_t count,
                     H323ObservedMessage& event) {
    const bool understood = facts.status == LocateStatus::complete;
    event.flags = (facts.isSigned ? H323NAT_MESSAGE_SIGNED : 0) |
                  (understood ? 0 : H323NAT_MESSAGE_NOT_UNDERSTOOD);
    event.name = facts.name;
    if (facts.callIdentifier != nullptr) {
        event.callIdentifier = {facts.callIdentifier, 16};
    }
    event.octets = {octets, static_cast<uint32_t>(count)};
}
