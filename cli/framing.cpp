#include "cli/framing.h"

#include <optional>
#include <stdexcept>

namespace cli {
namespace {

constexpr uint8_t tpktVersion = 3;
constexpr size_t tpktHeader = 4;
constexpr uint8_t q931Discriminator = 8;
constexpr uint8_t singleOctetElement = 0x80;
constexpr uint8_t userUserElement = 0x7E;
constexpr size_t userUserHeader = 4; // identifier, two octets of length, protocol discriminator

[[noreturn]] void fail(const std::string& what, size_t offset) {
    throw std::runtime_error(what + " at octet " + std::to_string(offset));
}

size_t twoOctets(std::span<const uint8_t> bytes, size_t at) {
    return size_t{bytes[at]} << 8 | bytes[at + 1];
}

/// The PER octets in the User-user element of the Q.931 message in bytes[at .. end - 1].
std::optional<std::span<const uint8_t>> userUserContents(std::span<const uint8_t> bytes, size_t at,
                                                         size_t end) {
    if (at + 2 > end) {
        fail("a Q.931 header is incomplete", at);
    }
    size_t cursor = at + 3 + bytes[at + 1]; // discriminator, call reference, message type
    while (cursor < end) {
        const uint8_t identifier = bytes[cursor];
        if ((identifier & singleOctetElement) != 0) {
            ++cursor;
            continue;
        }
        const bool userUser = identifier == userUserElement;
        const size_t lengthOctets = userUser ? 2 : 1;
        if (cursor + 1 + lengthOctets > end) {
            fail("a Q.931 element is incomplete", cursor);
        }
        const size_t length = userUser ? twoOctets(bytes, cursor + 1) : bytes[cursor + 1];
        const size_t next = cursor + 1 + lengthOctets + length;
        if (next > end || (userUser && length == 0)) {
            fail("the length of a Q.931 element is wrong", cursor);
        }
        if (userUser) {
            return bytes.subspan(cursor + userUserHeader, length - 1);
        }
        cursor = next;
    }
    return std::nullopt;
}

} // namespace

std::vector<FramedMessage> messagesInTpkts(std::span<const uint8_t> stream) {
    std::vector<FramedMessage> messages;
    size_t cursor = 0;
    while (cursor < stream.size()) {
        if (stream[cursor] != tpktVersion || cursor + tpktHeader > stream.size()) {
            fail("expected a TPKT header (03 00 and two octets of length)", cursor);
        }
        const size_t length = twoOctets(stream, cursor + 2);
        const size_t end = cursor + length;
        const size_t contents = cursor + tpktHeader;
        if (length <= tpktHeader || end > stream.size()) {
            fail("the length in the TPKT header is wrong", cursor);
        }
        if (stream[contents] != q931Discriminator) {
            messages.push_back({"H245MultimediaSystemControlMessage",
                                stream.subspan(contents, end - contents)});
        } else if (const auto found = userUserContents(stream, contents, end)) {
            messages.push_back({"H225H323_UserInformation", *found});
        }
        cursor = end;
    }
    return messages;
}

} // namespace cli
