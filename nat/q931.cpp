#include "nat/q931.h"

namespace {

constexpr size_t firstElementOffset = 9;
constexpr uint8_t singleOctetFlag = 0x80;
constexpr uint8_t userUserIdentifier = 0x7e;
// Identifier and two length octets; the length covers the protocol discriminator behind them.
constexpr size_t userUserHeader = 3;
constexpr size_t ordinaryHeader = 2;

} // namespace

Q931Walk walkQ931(const uint8_t* message, size_t length) {
    return {message, length, firstElementOffset};
}

Q931Element nextUserInformation(Q931Walk& walk, OctetRange& range) {
    while (walk.offset < walk.length) {
        const uint8_t* element = walk.message + walk.offset;
        const size_t left = walk.length - walk.offset;
        if (element[0] & singleOctetFlag) {
            walk.offset += 1;
        } else if (element[0] != userUserIdentifier) {
            if (left < ordinaryHeader) {
                return Q931Element::End;
            }
            walk.offset += ordinaryHeader + element[1];
        } else {
            if (left < userUserHeader) {
                return Q931Element::End;
            }
            const size_t content = static_cast<size_t>(element[1]) << 8 | element[2];
            // A content of 0 octets lacks its discriminator: the element is not whole either.
            if (content == 0 || content > left - userUserHeader) {
                return Q931Element::BeyondMessage;
            }
            range = {walk.offset + userUserHeader + 1, content - 1};
            walk.offset += userUserHeader + content;
            return Q931Element::UserInformation;
        }
    }
    return Q931Element::End;
}

uint8_t causeOfRelease(const uint8_t* message, size_t length) {
    constexpr uint8_t causeIdentifier = 0x08;
    constexpr uint8_t lastOctet = 0x80; // of a group: no octet 3a follows
    size_t offset = firstElementOffset;
    while (offset + ordinaryHeader <= length) {
        const uint8_t* element = message + offset;
        if (element[0] & singleOctetFlag) {
            offset += 1;
            continue;
        }
        if (element[0] == userUserIdentifier) {
            return 0; // it comes behind the Cause
        }
        const size_t content = element[1];
        if (content > length - offset - ordinaryHeader) {
            return 0;
        }
        if (element[0] == causeIdentifier && content >= 2) {
            const size_t place = (element[2] & lastOctet) != 0 ? 3 : 4;
            return place < content + ordinaryHeader ? element[place] & 0x7f : 0;
        }
        offset += ordinaryHeader + content;
    }
    return 0;
}
