#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// Addresses as this library hands them around: an IPv4 address a.b.c.d is the number
// a*2^24 + b*2^16 + c*2^8 + d, a port is a plain number. Nothing here is in network byte order.
namespace gateway {

enum class Protocol : uint8_t { Tcp = 6, Udp = 17 };

struct Endpoint {
    uint32_t address = 0;
    uint16_t port = 0;

    bool operator==(const Endpoint&) const = default;
};

// An IPv4 network in CIDR form; `prefixLength` is 0 to 32.
struct Network {
    uint32_t address = 0;
    unsigned prefixLength = 32;

    [[nodiscard]] bool contains(uint32_t candidate) const;
};

constexpr uint16_t callSignalPort = 1720;

// "10.0.0.5" and "10.0.0.5:1720".
std::string toText(uint32_t address);
std::string toText(const Endpoint& endpoint);

// Strict dotted decimal with four parts, no leading or trailing characters. nullopt otherwise.
std::optional<uint32_t> parseAddress(std::string_view text);

// "10.0.0.0/24", or an address alone for a network of one host. Bits behind the prefix must be 0.
std::optional<Network> parseNetwork(std::string_view text);

// One flow as one side of the translation sees it: `local` is the private endpoint in the inside
// view and the public endpoint in the outside view; `remote` is the outside party in both.
struct FlowId {
    Protocol protocol = Protocol::Tcp;
    Endpoint local;
    Endpoint remote;

    bool operator==(const FlowId&) const = default;
};

struct FlowIdHash {
    size_t operator()(const FlowId& id) const noexcept;
};

// Key of an endpoint whatever it talks to.
struct LocalId {
    Protocol protocol = Protocol::Tcp;
    Endpoint endpoint;

    bool operator==(const LocalId&) const = default;
};

struct LocalIdHash {
    size_t operator()(const LocalId& id) const noexcept;
};

} // namespace gateway
