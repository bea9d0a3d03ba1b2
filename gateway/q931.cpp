#include "gateway/q931.h"

namespace gateway {

std::optional<std::span<const uint8_t>> userInformation(std::span<const uint8_t> message,
                                                        bool& damaged) {
    constexpr size_t firstElement = 9;
    constexpr uint8_t singleOctet = 0x80;
    constexpr uint8_t userUser = 0x7E;

    damaged = message.size() < firstElement;
    size_t at = firstElement;
    while (at < message.size()) {
        if ((message[at] & singleOctet) != 0) {
            ++at;
            continue;
        }
        const bool isUserUser = message[at] == userUser;
        const size_t headerLength = isUserUser ? 3 : 2;
        if (message.size() - at < headerLength) {
            damaged = true;
            return std::nullopt;
        }
        const size_t length = isUserUser
                                  ? static_cast<size_t>(message[at + 1]) * 256 + message[at + 2]
                                  : message[at + 1];
        at += headerLength;
        if (length > message.size() - at || (isUserUser && length == 0)) {
            damaged = true;
            return std::nullopt;
        }
        if (isUserUser) {
            return message.subspan(at + 1, length - 1);
        }
        at += length;
    }
    return std::nullopt;
}

} // namespace gateway
