#include "nat/listed/transport_address.h"

bool findEndpoint(const H225TransportAddress& address, EndpointField& field) {
    if (address.alternative != H225TransportAddress_ipAddressChosen) {
        return false;
    }
    H225TransportAddress_ipAddress& ip = *address.value.ipAddress;
    field = {ip.ip.data, &ip.port};
    return true;
}

bool findEndpoint(const H245TransportAddress& address, EndpointField& field) {
    if (address.alternative != H245TransportAddress_unicastAddressChosen) {
        return false;
    }
    const H245UnicastAddress& unicast = *address.value.unicastAddress;
    if (unicast.alternative != H245UnicastAddress_iPAddressChosen) {
        return false;
    }
    H245UnicastAddress_iPAddress& ip = *unicast.value.iPAddress;
    field = {ip.network.data, &ip.tsapIdentifier};
    return true;
}

Endpoint readEndpoint(const EndpointField& field) {
    const uint32_t address = static_cast<uint32_t>(field.ip[0]) << 24 |
                             static_cast<uint32_t>(field.ip[1]) << 16 |
                             static_cast<uint32_t>(field.ip[2]) << 8 | field.ip[3];
    return {address, static_cast<uint16_t>(*field.port)};
}

void storeAddress(uint8_t* octets, uint32_t address) {
    octets[0] = static_cast<uint8_t>(address >> 24);
    octets[1] = static_cast<uint8_t>(address >> 16);
    octets[2] = static_cast<uint8_t>(address >> 8);
    octets[3] = static_cast<uint8_t>(address);
}

void storeEndpoint(uint8_t* octets, Endpoint endpoint) {
    storeAddress(octets, endpoint.address);
    octets[4] = static_cast<uint8_t>(endpoint.port >> 8);
    octets[5] = static_cast<uint8_t>(endpoint.port);
}
