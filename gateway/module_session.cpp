#include "gateway/module_session.h"

#include <stdexcept>

namespace gateway {
namespace {

// The callbacks carry no pointer of the host's that all four have in common.
Translator* activeTranslator = nullptr;

uint32_t H323NAT_CALL openMediaMapping(HostContext* /*hostContext*/, uint32_t privateAddress,
                                       uint32_t remoteAddress, uint16_t privatePort,
                                       uint32_t* publicPort, uint32_t* publicAddress,
                                       HostMappingRecord** first, HostMappingRecord** second,
                                       uint8_t* skipLinking) {
    const MediaMapping mapping =
        activeTranslator->openMedia({privateAddress, privatePort}, remoteAddress);
    *publicPort = mapping.publicEndpoint.port;
    *publicAddress = mapping.publicEndpoint.address;
    *first = mapping.first;
    *second = mapping.second;
    *skipLinking = mapping.first == nullptr || mapping.second == nullptr ? 1 : 0;
    return mapping.granted ? 0 : 1;
}

uint8_t H323NAT_CALL openControlMapping(HostContext* /*hostContext*/, uint32_t privateAddress,
                                        uint32_t remoteAddress, uint16_t privatePort,
                                        uint32_t* publicPort, uint32_t* publicAddress,
                                        uint32_t* /*reserved*/) {
    const auto mapping =
        activeTranslator->openControl({privateAddress, privatePort}, remoteAddress);
    if (!mapping) {
        return 1;
    }
    *publicPort = mapping->publicEndpoint.port;
    *publicAddress = mapping->publicEndpoint.address;
    return 0;
}

HostMappingRecord* H323NAT_CALL findInsideMapping(uint32_t insideAddress, uint16_t insidePort,
                                                  uint32_t remoteAddress, uint16_t remotePort) {
    return activeTranslator->findInside({insideAddress, insidePort}, {remoteAddress, remotePort});
}

HostMappingRecord* H323NAT_CALL findOutsideMapping(uint32_t publicAddress, uint16_t publicPort,
                                                   uint32_t remoteAddress, uint16_t remotePort) {
    return activeTranslator->findOutside({publicAddress, publicPort}, {remoteAddress, remotePort});
}

constexpr HostCallbackTable callbacks{
    nullptr,           nullptr,           nullptr, openMediaMapping, openControlMapping,
    findInsideMapping, findOutsideMapping};

} // namespace

ModuleSession::ModuleSession(Translator& translator, const ModuleSettings& settings) {
    if (activeTranslator != nullptr) {
        throw std::runtime_error("the H.323 module serves another host in this process");
    }
    if (H323IsGatewayDLL() != H323NAT_IDENTIFICATION) {
        throw std::runtime_error("the library loaded as h323nat is not the H.323 module");
    }
    if (H323InitializeDLL(&callbacks) != 1) {
        throw std::runtime_error("the H.323 module could not start: not enough memory");
    }
    H323SetRewriteMode(settings.lossless ? H323NAT_REWRITE_LOSSLESS : H323NAT_REWRITE_ENCODED);
    context_.publicAddress = settings.publicAddress;
    publish(settings.publishedAddress);
    activeTranslator = &translator;
}

ModuleSession::~ModuleSession() {
    activeTranslator = nullptr;
}

void ModuleSession::publish(uint32_t address) {
    TarvexActivateInboundMapping(address);
}

bool ModuleSession::send(std::span<uint8_t> packet, const PacketLayout& layout) {
    PacketDescriptor descriptor{};
    descriptor.ipHeader = packet.data();
    descriptor.moduleIpHeader = packet.data();
    descriptor.ipHeaderLength = static_cast<uint16_t>(layout.ipHeaderLength);
    descriptor.transportHeader = packet.data() + layout.ipHeaderLength;
    descriptor.transportLength = static_cast<uint16_t>(layout.transportLength());
    toHostByteOrder(packet, layout);
    TarvexPacketOnSending(&context_, &descriptor);
    toNetworkByteOrder(packet, layout);
    return (descriptor.flags & PACKET_CHANGED) != 0;
}

bool ModuleSession::receive(std::span<uint8_t> packet, const PacketLayout& layout) {
    PacketDescriptor descriptor{};
    descriptor.ipHeader = packet.data();
    toHostByteOrder(packet, layout);
    TarvexPacketOnReceiving(&context_, &descriptor);
    toNetworkByteOrder(packet, layout);
    return (descriptor.flags & PACKET_CHANGED) != 0;
}

} // namespace gateway
