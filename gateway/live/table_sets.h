#pragma once

#include "gateway/endpoint.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// The sets and maps of the gateway's nftables table, and their elements as the kernel has them.
namespace gateway {

enum class SetId : uint8_t {
    MediaIn,    // public UDP port -> private endpoint
    MediaOut,   // private UDP endpoint -> public endpoint that its packets leave from
    ControlIn,  // public TCP port -> private endpoint
    MediaHosts, // private endpoints of media
    RasHosts,   // private endpoints of RAS
    RasIn,      // public ports of RAS
    Expected,   // outside TCP endpoints that private hosts are told to connect to
    Listening,  // private TCP endpoints of signalling and H.245
    Answering,  // public TCP ports of these
};

struct TableSet {
    const char* name;
    const char* type; // in nft's words
    bool isMap;
};

// By SetId.
std::span<const TableSet> tableSets();

// An element; octets in network byte order, each part of a concatenation padded to four.
struct SetElement {
    SetId set = SetId::MediaIn;
    uint8_t keyOctets = 0;
    uint8_t valueOctets = 0; // 0: no map
    std::array<uint8_t, 8> key{};
    std::array<uint8_t, 8> value{};

    bool operator==(const SetElement&) const = default;
};

enum class MappingKind : uint8_t { Media, Ras, Control };

// One public port and where it leads: first what a map of the table says, in its order.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct PortForward {
    MappingKind kind = MappingKind::Media;
    uint16_t publicPort = 0;
    Endpoint inside;
    // UDP: not 0 when packets of `inside` leave from it and `publicPort`.
    uint32_t publicAddress = 0;
    uint32_t gatekeeper = 0; // RAS: the one that has confirmed; 0: none
    bool shown = false;      // control: the module wants to see its connections

    bool operator==(const PortForward&) const = default;
};

std::vector<SetElement> elementsOf(const PortForward& forward);

// An element of a set of endpoints.
SetElement elementOf(SetId set, const Endpoint& endpoint);

// An element of a set of ports.
SetElement elementOf(SetId set, uint16_t publicPort);

} // namespace gateway
