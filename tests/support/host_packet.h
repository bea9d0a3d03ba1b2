// A packet as a host presents it: headers in host byte order, at an odd address, with nothing
// behind its last octet (so that AddressSanitizer sees every read beyond it).
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "include/h323nat.h"

struct TcpFields {
    uint32_t source;
    uint32_t destination;
    uint16_t sourcePort;
    uint16_t destinationPort;
    uint32_t sequence = 1;
    uint8_t flags = 0x10; // ACK
    std::vector<uint8_t> payload = {};
    uint32_t acknowledgement = 0;
};

class HostPacket {
public:
    explicit HostPacket(const TcpFields& fields) : HostPacket(6, 20, fields) {
        put<uint32_t>(transport() + 4, fields.sequence);
        put<uint32_t>(transport() + 8, fields.acknowledgement);
        transport()[12] = 0x50;
        transport()[13] = fields.flags;
    }

    static HostPacket udp(const TcpFields& fields) {
        HostPacket packet(17, 8, fields);
        packet.put<uint16_t>(packet.transport() + 4,
                             static_cast<uint16_t>(8 + fields.payload.size()));
        return packet;
    }

    uint8_t* ip() { return memory.get() + 1; }
    uint8_t* transport() { return ip() + ipHeader; }
    uint8_t* payload() { return transport() + transportHeader; }
    size_t transportLength() const { return length - ipHeader; }

    template <typename Field> void put(uint8_t* where, Field value) {
        std::memcpy(where, &value, sizeof value);
    }

    bool receive(HostContext* context) {
        descriptor.ipHeader = ip();
        TarvexPacketOnReceiving(context, &descriptor);
        return (descriptor.flags & PACKET_CHANGED) != 0;
    }

    bool send(HostContext* context) {
        descriptor.moduleIpHeader = ip();
        descriptor.transportHeader = transport();
        descriptor.transportLength = static_cast<uint16_t>(transportLength());
        TarvexPacketOnSending(context, &descriptor);
        return (descriptor.flags & PACKET_CHANGED) != 0;
    }

    PacketDescriptor descriptor{};

private:
    static constexpr size_t ipHeader = 24; // one word of options

    HostPacket(uint8_t protocol, size_t headerLength, const TcpFields& fields)
        : transportHeader(headerLength), length(ipHeader + headerLength + fields.payload.size()),
          memory(std::make_unique<uint8_t[]>(length + 1)) {
        ip()[0] = 0x46;
        put<uint16_t>(ip() + 2, static_cast<uint16_t>(length));
        ip()[9] = protocol;
        put<uint32_t>(ip() + 12, fields.source);
        put<uint32_t>(ip() + 16, fields.destination);
        put<uint16_t>(transport(), fields.sourcePort);
        put<uint16_t>(transport() + 2, fields.destinationPort);
        if (!fields.payload.empty()) {
            std::memcpy(payload(), fields.payload.data(), fields.payload.size());
        }
    }

    size_t transportHeader;
    size_t length;
    std::unique_ptr<uint8_t[]> memory;
};
