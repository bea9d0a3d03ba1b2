#include "tests/support/octets.h"

#include <algorithm>
#include <cassert>

namespace test_support {

std::string endpointText(uint32_t address, uint32_t port) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string(address >> shift & 0xff) + (shift > 0 ? "." : ":");
    }
    return text + std::to_string(port);
}

Octets octetsOfAddress(uint32_t address) {
    return {static_cast<uint8_t>(address >> 24), static_cast<uint8_t>(address >> 16),
            static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address)};
}

Octets octetsOfEndpoint(uint32_t address, uint16_t port) {
    Octets octets = octetsOfAddress(address);
    octets.push_back(static_cast<uint8_t>(port >> 8));
    octets.push_back(static_cast<uint8_t>(port));
    return octets;
}

Octets fromHex(std::string_view hex) {
    constexpr std::string_view digits = "0123456789abcdef";
    Octets octets;
    bool high = true;
    for (const char c : hex) {
        const size_t digit = digits.find(c);
        if (digit == std::string_view::npos) {
            continue;
        }
        if (high) {
            octets.push_back(static_cast<uint8_t>(digit << 4));
        } else {
            octets.back() = static_cast<uint8_t>(octets.back() | digit);
        }
        high = !high;
    }
    return octets;
}

std::string toHex(const Octets& octets) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const uint8_t octet : octets) {
        text += digits[octet >> 4];
        text += digits[octet & 15];
    }
    return text;
}

Octets joined(const Octets& head, const Octets& tail) {
    Octets octets(head.size() + tail.size());
    std::copy(tail.begin(), tail.end(), std::copy(head.begin(), head.end(), octets.begin()));
    return octets;
}

void overwrite(Octets& target, size_t offset, const Octets& octets) {
    assert(offset + octets.size() <= target.size());
    std::copy(octets.begin(), octets.end(), target.begin() + static_cast<ptrdiff_t>(offset));
}

} // namespace test_support
