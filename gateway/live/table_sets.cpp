#include "gateway/live/table_sets.h"

namespace gateway {
namespace {

constexpr const char* endpointType = "ipv4_addr . inet_service";
// The kernel keeps plain sets of ports as lists that it walks for every change; those that could
// time out are hashed.
constexpr const char* portType = "inet_service; flags timeout";
constexpr const char* forwardType = "inet_service : ipv4_addr . inet_service";

constexpr TableSet sets[] = {
    {"media_in", forwardType, true},
    {"media_out", "ipv4_addr . inet_service : ipv4_addr . inet_service", true},
    {"control_in", forwardType, true},
    {"media_hosts", endpointType, false},
    {"ras_hosts", endpointType, false},
    {"ras_in", portType, false},
    {"expected", endpointType, false},
    {"listening", endpointType, false},
    {"answering", portType, false}};

constexpr uint8_t endpointOctets = 8;
constexpr uint8_t portOctets = 2;

void write(std::array<uint8_t, 8>& out, const Endpoint& endpoint) {
    out = {
        static_cast<uint8_t>(endpoint.address >> 24), static_cast<uint8_t>(endpoint.address >> 16),
        static_cast<uint8_t>(endpoint.address >> 8),  static_cast<uint8_t>(endpoint.address),
        static_cast<uint8_t>(endpoint.port >> 8),     static_cast<uint8_t>(endpoint.port)};
}

SetElement withValue(SetElement element, const Endpoint& value) {
    element.valueOctets = endpointOctets;
    write(element.value, value);
    return element;
}

} // namespace

std::span<const TableSet> tableSets() {
    return sets;
}

SetElement elementOf(SetId set, const Endpoint& endpoint) {
    SetElement element;
    element.set = set;
    element.keyOctets = endpointOctets;
    write(element.key, endpoint);
    return element;
}

SetElement elementOf(SetId set, uint16_t publicPort) {
    SetElement element;
    element.set = set;
    element.keyOctets = portOctets;
    element.key[0] = static_cast<uint8_t>(publicPort >> 8);
    element.key[1] = static_cast<uint8_t>(publicPort);
    return element;
}

std::vector<SetElement> elementsOf(const PortForward& forward) {
    const bool control = forward.kind == MappingKind::Control;
    std::vector<SetElement> elements = {
        withValue(elementOf(control ? SetId::ControlIn : SetId::MediaIn, forward.publicPort),
                  forward.inside)};
    if (forward.publicAddress != 0) {
        elements.push_back(withValue(elementOf(SetId::MediaOut, forward.inside),
                                     {forward.publicAddress, forward.publicPort}));
    }
    if (forward.kind == MappingKind::Media && forward.publicAddress != 0) {
        elements.push_back(elementOf(SetId::MediaHosts, forward.inside));
    }
    if (forward.kind == MappingKind::Ras) {
        elements.push_back(elementOf(SetId::RasHosts, forward.inside));
        elements.push_back(elementOf(SetId::RasIn, forward.publicPort));
    }
    if (control && forward.shown) {
        elements.push_back(elementOf(SetId::Listening, forward.inside));
        elements.push_back(elementOf(SetId::Answering, forward.publicPort));
    }
    return elements;
}

} // namespace gateway
