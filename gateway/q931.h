#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace gateway {

constexpr size_t tpktHeader = 4; // RFC 1006: version 3, reserved, length (two octets)

// The first User-user element's user information (behind its protocol discriminator) in a TPKT
// framed Q.931 message with a call reference of two octets. nullopt when there is none; `damaged`
// is then set when an element reaches beyond the message.
std::optional<std::span<const uint8_t>> userInformation(std::span<const uint8_t> message,
                                                        bool& damaged);

} // namespace gateway
