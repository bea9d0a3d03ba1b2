#include "gateway/endpoint.h"

#include <array>
#include <charconv>
#include <random>

namespace gateway {
namespace {

// Seeded once per process: the keys come from packets, and nobody outside may aim at one bucket.
uint64_t hashSeed() {
    static const uint64_t seed = [] {
        std::random_device device;
        return (static_cast<uint64_t>(device()) << 32) | device();
    }();
    return seed;
}

uint64_t mix(uint64_t state, uint64_t value) {
    state ^= value;
    state *= 0x9E3779B97F4A7C15ULL;
    return state ^ (state >> 29);
}

uint64_t pack(const Endpoint& endpoint) {
    return (static_cast<uint64_t>(endpoint.address) << 16) | endpoint.port;
}

uint32_t networkMask(unsigned prefixLength) {
    return prefixLength == 0 ? 0 : ~uint32_t{0} << (32 - prefixLength);
}

} // namespace

bool Network::contains(uint32_t candidate) const {
    return ((candidate ^ address) & networkMask(prefixLength)) == 0;
}

std::string toText(uint32_t address) {
    return std::to_string(address >> 24) + '.' + std::to_string((address >> 16) & 0xFF) + '.' +
           std::to_string((address >> 8) & 0xFF) + '.' + std::to_string(address & 0xFF);
}

std::string toText(const Endpoint& endpoint) {
    return toText(endpoint.address) + ':' + std::to_string(endpoint.port);
}

std::optional<uint32_t> parseAddress(std::string_view text) {
    uint32_t address = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && (at == end || *at++ != '.')) {
            return std::nullopt;
        }
        uint8_t value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc{} || next - at > 3) {
            return std::nullopt;
        }
        address = (address << 8) | value;
        at = next;
    }
    return at == end ? std::optional(address) : std::nullopt;
}

std::optional<Network> parseNetwork(std::string_view text) {
    const size_t slash = text.find('/');
    const auto address = parseAddress(text.substr(0, slash));
    if (!address) {
        return std::nullopt;
    }
    Network network{*address, 32};
    if (slash != std::string_view::npos) {
        const std::string_view length = text.substr(slash + 1);
        const char* const end = length.data() + length.size();
        const auto [next, error] = std::from_chars(length.data(), end, network.prefixLength);
        if (error != std::errc{} || next != end || network.prefixLength > 32) {
            return std::nullopt;
        }
    }
    if ((*address & ~networkMask(network.prefixLength)) != 0) {
        return std::nullopt;
    }
    return network;
}

size_t FlowIdHash::operator()(const FlowId& id) const noexcept {
    uint64_t state = mix(hashSeed(), static_cast<uint64_t>(id.protocol));
    state = mix(state, pack(id.local));
    return static_cast<size_t>(mix(state, pack(id.remote)));
}

size_t LocalIdHash::operator()(const LocalId& id) const noexcept {
    return static_cast<size_t>(
        mix(mix(hashSeed(), static_cast<uint64_t>(id.protocol)), pack(id.endpoint)));
}

} // namespace gateway
