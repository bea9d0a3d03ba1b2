#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace cli {

constexpr uint8_t q931Discriminator = 8; ///< begins the content of a TPKT with call signalling

/// Whether octets begin as a TPKT does, as far as there are any.
bool beginsTpkt(std::span<const uint8_t> octets);

/// A PER encoding found in framed bytes, and the type that its place says it has.
struct FramedMessage {
    std::string type;
    std::span<const uint8_t> encoding; ///< within the bytes given
};

/// The messages in bytes of a TCP stream, TPKT by TPKT (RFC 1006): the contents of the User-user
/// element of a Q.931 message, or else an H.245 message. A Q.931 message without User-user element
/// is left out. Throws std::runtime_error that names the offset of a header that is wrong, or of a
/// frame whose User-user element reaches beyond it.
std::vector<FramedMessage> messagesInTpkts(std::span<const uint8_t> stream);

} // namespace cli
