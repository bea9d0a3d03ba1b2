#include "gateway/link_layer.h"

namespace gateway {
namespace {

constexpr uint16_t etherTypeIpv4 = 0x0800;
constexpr uint16_t etherTypeIpv6 = 0x86DD;
constexpr uint16_t etherTypeVlan = 0x8100;        // IEEE 802.1Q
constexpr uint16_t etherTypeServiceVlan = 0x88A8; // IEEE 802.1ad
constexpr size_t vlanTag = 4;
constexpr int maxVlanTags = 2;

// Where the protocol number stands in a frame's header, and how long the header is.
struct LinkHeader {
    int linkType;
    size_t protocolAt;
    size_t length;
};

constexpr LinkHeader linkHeaders[] = {
    {linkTypeEthernet, 12, 14},
    {linkTypeLinuxCooked, 14, 16},
    {linkTypeLinuxCooked2, 0, 20},
};

bool isRaw(int linkType) {
    return linkType == linkTypeRaw || linkType == linkTypeIpv4;
}

const LinkHeader* headerOf(int linkType) {
    for (const LinkHeader& header : linkHeaders) {
        if (header.linkType == linkType) {
            return &header;
        }
    }
    return nullptr;
}

uint16_t read16(std::span<const uint8_t> frame, size_t at) {
    return static_cast<uint16_t>((frame[at] << 8) | frame[at + 1]);
}

NetworkProtocol rawProtocol(std::span<const uint8_t> packet) {
    const int version = packet.empty() ? 0 : packet[0] >> 4;
    if (version == 4) {
        return NetworkProtocol::Ipv4;
    }
    return version == 6 ? NetworkProtocol::Ipv6 : NetworkProtocol::Other;
}

} // namespace

bool isSupportedLinkType(int linkType) {
    return isRaw(linkType) || headerOf(linkType) != nullptr;
}

NetworkLayer networkLayer(int linkType, std::span<const uint8_t> frame) {
    if (isRaw(linkType)) {
        return {rawProtocol(frame), 0};
    }
    const LinkHeader* const header = headerOf(linkType);
    if (header == nullptr || frame.size() < header->length) {
        return {};
    }
    uint16_t protocol = read16(frame, header->protocolAt);
    size_t offset = header->length;
    for (int tags = 0;
         tags < maxVlanTags && (protocol == etherTypeVlan || protocol == etherTypeServiceVlan);
         ++tags) {
        if (frame.size() < offset + vlanTag) {
            return {};
        }
        protocol = read16(frame, offset + 2);
        offset += vlanTag;
    }
    switch (protocol) {
    case etherTypeIpv4:
        return {NetworkProtocol::Ipv4, offset};
    case etherTypeIpv6:
        return {NetworkProtocol::Ipv6, offset};
    default:
        return {NetworkProtocol::Other, offset};
    }
}

} // namespace gateway
