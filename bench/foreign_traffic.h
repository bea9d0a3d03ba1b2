// Traffic that is none of the module's.
#pragma once

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "include/h323nat.h"

namespace bench {

constexpr size_t foreignPackets = 4096; // of a count of instructions

using Hook = uint32_t (*)(HostContext*, PacketDescriptor*);

enum class Mix { tcpAndUdp, tcp };

// Packets that no rule can match, each in a line of memory of its own: headers in host byte order,
// half TCP, half UDP, or TCP alone, random addresses, ports above the well-known ones.
class ForeignTraffic {
public:
    explicit ForeignTraffic(size_t count, Mix mix = Mix::tcpAndUdp)
        : memory_(std::make_unique<uint8_t[]>(count * packetSpacing)), descriptors_(count) {
        std::mt19937 random(1);
        for (size_t i = 0; i < count; ++i) {
            uint8_t* ip = memory_.get() + i * packetSpacing;
            const bool tcp = random() % 2 == 0 || mix == Mix::tcp;
            ip[0] = 0x45;
            put<uint16_t>(ip + 2, static_cast<uint16_t>(headerOctets + 400));
            ip[9] = tcp ? 6 : 17;
            put<uint32_t>(ip + 12, 0x0A000000U + static_cast<uint32_t>(random() % 65536));
            put<uint32_t>(ip + 16, static_cast<uint32_t>(random() | 0x40000000U));
            uint8_t* transport = ip + 20;
            put<uint16_t>(transport, static_cast<uint16_t>(10000 + random() % 50000));
            put<uint16_t>(transport + 2,
                          tcp ? 443 : static_cast<uint16_t>(10000 + random() % 50000));
            put<uint16_t>(transport + 4, 420);
            transport[12] = 0x50;
            transport[13] = 0x10;
            PacketDescriptor& descriptor = descriptors_[i];
            descriptor.ipHeader = ip;
            descriptor.moduleIpHeader = ip;
            descriptor.transportHeader = transport;
            descriptor.transportLength = 420;
        }
    }

    void pass(Hook hook, HostContext* context) {
        for (PacketDescriptor& descriptor : descriptors_) {
            hook(context, &descriptor);
        }
    }

    size_t count() const { return descriptors_.size(); }

private:
    template <typename Field> static void put(uint8_t* where, Field value) {
        std::memcpy(where, &value, sizeof value);
    }

    static constexpr size_t packetSpacing = 512; // as in a driver's ring
    static constexpr size_t headerOctets = 40;

    std::unique_ptr<uint8_t[]> memory_;
    std::vector<PacketDescriptor> descriptors_;
};

} // namespace bench
