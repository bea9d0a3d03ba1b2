#include "cli/framing.h"

#include <algorithm>
#include <stdexcept>

#include "nat/q931.h"

namespace cli {
namespace {

[[noreturn]] void fail(const std::string& what, size_t offset) {
    throw std::runtime_error(what + " at octet " + std::to_string(offset));
}

/// The user information in the Q.931 message of the frame that begins at `start`.
void addUserInformation(std::span<const uint8_t> frame, size_t start,
                        std::vector<FramedMessage>& messages) {
    Q931Walk walk = walkQ931(frame.data(), frame.size());
    OctetRange range{};
    Q931Element element = nextUserInformation(walk, range);
    while (element == Q931Element::UserInformation) {
        messages.push_back({"H225H323_UserInformation", frame.subspan(range.offset, range.octets)});
        element = nextUserInformation(walk, range);
    }
    if (element == Q931Element::BeyondMessage) {
        fail("a User-user element reaches beyond its message: the frame", start);
    }
}

} // namespace

bool beginsTpkt(std::span<const uint8_t> octets) {
    constexpr uint8_t heading[] = {3, 0};
    return std::equal(octets.begin(), octets.begin() + std::min<size_t>(octets.size(), 2), heading);
}

std::vector<FramedMessage> messagesInTpkts(std::span<const uint8_t> stream) {
    std::vector<FramedMessage> messages;
    size_t cursor = 0;
    while (cursor < stream.size()) {
        if (!beginsTpkt(stream.subspan(cursor)) || cursor + tpktHeader > stream.size()) {
            fail("expected a TPKT header (03 00 and two octets of length)", cursor);
        }
        const size_t length = tpktLength(&stream[cursor]);
        if (length <= tpktHeader || length > stream.size() - cursor) {
            fail("the length in the TPKT header is wrong", cursor);
        }
        const auto frame = stream.subspan(cursor, length);
        if (frame[tpktHeader] == q931Discriminator) {
            addUserInformation(frame, cursor, messages);
        } else {
            messages.push_back({"H245MultimediaSystemControlMessage", frame.subspan(tpktHeader)});
        }
        cursor += length;
    }
    return messages;
}

} // namespace cli
