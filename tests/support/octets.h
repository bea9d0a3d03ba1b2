// Octet strings and addresses as tests write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace test_support {

using Octets = std::vector<uint8_t>;

/// 10.0.0.5 as address(10, 0, 0, 5).
constexpr uint32_t address(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return a << 24 | b << 16 | c << 8 | d;
}

/// "10.0.0.5:5000".
std::string endpointText(uint32_t address, uint32_t port);

/// Octets of an address; of an address and a port.
Octets octetsOfAddress(uint32_t address);
Octets octetsOfEndpoint(uint32_t address, uint16_t port);

/// Octets from hexadecimal digits; spaces are skipped.
Octets fromHex(std::string_view hex);
std::string toHex(const Octets& octets);

/// `head` and `tail` one behind the other.
Octets joined(const Octets& head, const Octets& tail);

/// Writes `octets` over `target` from `offset` on; they must fit.
void overwrite(Octets& target, size_t offset, const Octets& octets);

} // namespace test_support
