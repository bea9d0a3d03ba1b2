#include "gateway/module_session.h"

#include <cctype>
#include <stdexcept>
#include <string>

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

template <typename Event, void (ModuleObserver::*Told)(const Event&)>
void H323NAT_CALL forward(void* context, const Event* event) {
    (static_cast<ModuleObserver*>(context)->*Told)(*event);
}

H323Observer observerFor(ModuleObserver* observer) {
    return {sizeof(H323Observer),
            observer,
            forward<H323ObservedMessage, &ModuleObserver::onMessage>,
            forward<H323ObservedAddress, &ModuleObserver::onRewritten>,
            forward<H323ObservedAddress, &ModuleObserver::onLeft>,
            forward<H323ObservedCall, &ModuleObserver::onCallBegan>,
            forward<H323ObservedCall, &ModuleObserver::onCallEnded>,
            forward<H323ObservedConnection, &ModuleObserver::onAnnounced>,
            forward<H323ObservedConnection, &ModuleObserver::onOver>};
}

struct LeftCause {
    uint32_t number;
    std::string name;
    const char* text;
};

// "NOT_THE_SENDERS" as reports and counters write it.
std::string reportName(std::string name) {
    for (char& letter : name) {
        letter = letter == '_' ? '-' : static_cast<char>(std::tolower(letter));
    }
    return name;
}

const LeftCause& leftCause(uint32_t number) {
    static const LeftCause causes[] = {
#define H323NAT_LEFT_ROW(name, number, text) {number, reportName(#name), text},
        H323NAT_LEFT_CAUSES(H323NAT_LEFT_ROW)
#undef H323NAT_LEFT_ROW
    };
    static const LeftCause unknown = {0, "unknown", "a cause that this program does not know"};
    for (const LeftCause& cause : causes) {
        if (cause.number == number) {
            return cause;
        }
    }
    return unknown;
}

constexpr HostCallbackTable callbacks{
    nullptr,           nullptr,           nullptr, openMediaMapping, openControlMapping,
    findInsideMapping, findOutsideMapping};

} // namespace

const char* leftCauseName(uint32_t cause) {
    return leftCause(cause).name.c_str();
}

const char* leftCauseText(uint32_t cause) {
    return leftCause(cause).text;
}

ModuleSession::ModuleSession(Translator& translator, const ModuleSettings& settings,
                             ModuleObserver* observer) {
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
    if (settings.fullScope && H323SetTranslationScope(H323NAT_SCOPE_FULL, settings.calls) != 1) {
        throw std::runtime_error("the H.323 module could not start: not enough memory for " +
                                 std::to_string(settings.calls) + " calls");
    }
    context_.publicAddress = settings.publicAddress;
    publish(settings.publishedAddress);
    activeTranslator = &translator;
    if (observer != nullptr) {
        const H323Observer functions = observerFor(observer);
        H323SetObserver(&functions);
    }
}

ModuleSession::~ModuleSession() {
    H323SetObserver(nullptr);
    H323SetTranslationScope(H323NAT_SCOPE_LISTED, 0);
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
