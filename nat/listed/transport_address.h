// The transport addresses of H.225.0 and H.245 as IPv4 address and port.
//
// Only IPv4 unicast addresses are translated. Every other form (IPv6, IPX, NSAP, source routes,
// multicast groups, unknown alternatives) gives no endpoint: the rules then leave that address as
// it is, which keeps the message valid.
#pragma once

#include <cstdint>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

// An IPv4 address (a.b.c.d is a·2^24 + b·2^16 + c·2^8 + d) and a port, both numbers.
struct Endpoint {
    uint32_t address;
    uint16_t port;
};

// The members of a decoded record that hold an IPv4 endpoint; valid as long as the record is.
struct EndpointField {
    uint8_t* ip;   // four octets, most significant first
    int32_t* port; // 0..65535
};

// Points `field` at the IPv4 endpoint of `address` and gives true; gives false for any other form
// and leaves `field` alone.
bool findEndpoint(const H225TransportAddress& address, EndpointField& field);
bool findEndpoint(const H245TransportAddress& address, EndpointField& field);

// The endpoint that a field holds.
Endpoint readEndpoint(const EndpointField& field);

// Octets of an address in a message, and of an address with the port that follows it at once.
constexpr uint32_t addressOctets = 4;
constexpr uint32_t endpointOctets = 6;

// Writes an address (four octets) or an address and its port (six octets), most significant octet
// first, as aligned PER carries them.
void storeAddress(uint8_t* octets, uint32_t address);
void storeEndpoint(uint8_t* octets, Endpoint endpoint);
