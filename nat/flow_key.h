// Identities of TCP flows and endpoints. Addresses and ports are numbers in host byte order.
#pragma once

#include <cstdint>

struct FlowKey {
    uint32_t sourceAddress;
    uint32_t destinationAddress;
    uint16_t sourcePort;
    uint16_t destinationPort;

    friend bool operator==(const FlowKey&, const FlowKey&) = default;
};

struct EndpointKey {
    uint32_t address;
    uint16_t port;

    friend bool operator==(const EndpointKey&, const EndpointKey&) = default;
};
