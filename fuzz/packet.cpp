#include "fuzz/packet.h"

#include <cstring>
#include <memory>

#include "fuzz/require.h"

namespace fuzzing {

namespace {

constexpr size_t ipHeaderOctets = 20;
constexpr size_t tcpHeaderOctets = 20;
constexpr size_t udpHeaderOctets = 8;
constexpr uint8_t hostFlags = 0x81;

template <typename Field> void put(Octets& octets, size_t offset, Field value) {
    std::memcpy(octets.data() + offset, &value, sizeof value);
}

Octets packet(uint8_t protocol, size_t transportHeader, const FlowKey& flow,
              const Octets& payload) {
    Octets octets(ipHeaderOctets + transportHeader);
    octets.insert(octets.end(), payload.begin(), payload.end());
    octets[0] = 0x45;
    put(octets, 2, static_cast<uint16_t>(octets.size()));
    octets[9] = protocol;
    put(octets, 12, flow.sourceAddress);
    put(octets, 16, flow.destinationAddress);
    put(octets, ipHeaderOctets, flow.sourcePort);
    put(octets, ipHeaderOctets + 2, flow.destinationPort);
    return octets;
}

// Memory of exactly this size, so that a sanitizer sees any access outside. Odd, as a host may
// have it.
class ExactMemory {
public:
    explicit ExactMemory(std::span<const uint8_t> octets)
        : memory_(std::make_unique<uint8_t[]>(octets.size() + 1)), size_(octets.size()) {
        std::copy(octets.begin(), octets.end(), begin());
    }
    uint8_t* begin() { return memory_.get() + 1; }
    uint8_t* end() { return begin() + size_; }

private:
    std::unique_ptr<uint8_t[]> memory_;
    size_t size_;
};

// Octets from the IP header on that the hook may change, from `begin` up to the packet's end.
size_t payloadBegin(const Octets& octets, size_t transport) {
    const bool tcp = octets[9] == 6;
    if (!tcp) {
        return transport + udpHeaderOctets;
    }
    if (octets.size() < transport + tcpHeaderOctets) {
        return octets.size();
    }
    return transport + ((octets[transport + 12] >> 2) & 0x3Cu);
}

HookResult examine(const PacketDescriptor& descriptor, const Octets& before, Octets after,
                   size_t transport) {
    require((descriptor.flags | PACKET_CHANGED) == (hostFlags | PACKET_CHANGED),
            "a hook sets no flag besides PACKET_CHANGED");
    const bool changed = (descriptor.flags & PACKET_CHANGED) != 0;
    if (!changed) {
        require(after == before, "a packet that is not marked as changed is as it was");
        return {false, std::move(after)};
    }
    const size_t payload = payloadBegin(before, transport);
    require(payload < before.size(), "a packet without payload does not change");
    require(
        std::equal(before.begin(), before.begin() + static_cast<ptrdiff_t>(payload), after.begin()),
        "only the payload changes");
    return {true, std::move(after)};
}

} // namespace

Octets tcpPacket(const TcpFields& fields, const Octets& payload) {
    Octets octets = packet(6, tcpHeaderOctets, fields.flow, payload);
    put(octets, ipHeaderOctets + 4, fields.sequence);
    put(octets, ipHeaderOctets + 8, fields.acknowledgement);
    octets[ipHeaderOctets + 12] = 0x50;
    octets[ipHeaderOctets + 13] = fields.flags;
    return octets;
}

Octets udpPacket(const FlowKey& flow, const Octets& payload) {
    Octets octets = packet(17, udpHeaderOctets, flow, payload);
    put(octets, ipHeaderOctets + 4, static_cast<uint16_t>(udpHeaderOctets + payload.size()));
    return octets;
}

HookResult receivePacket(HostContext& context, Octets octets) {
    octets.resize(std::max(octets.size(), ipHeaderOctets));
    uint16_t totalLength = 0;
    std::memcpy(&totalLength, octets.data() + 2, sizeof totalLength);
    octets.resize(std::max<size_t>(totalLength, ipHeaderOctets));

    ExactMemory memory(octets);
    PacketDescriptor descriptor{};
    descriptor.flags = hostFlags;
    descriptor.ipHeader = memory.begin();
    require(TarvexPacketOnReceiving(&context, &descriptor) == 0, "a hook returns 0");
    const size_t headerLength = size_t{octets[0] & 0x0Fu} * 4;
    require(descriptor.moduleIpHeader == memory.begin() &&
                descriptor.ipHeaderLength == headerLength &&
                descriptor.transportHeader == memory.begin() + headerLength,
            "the receiving hook fills the descriptor");
    return examine(descriptor, octets, {memory.begin(), memory.end()}, headerLength);
}

HookResult sendPacket(HostContext& context, const Octets& octets) {
    const std::span<const uint8_t> whole(octets);
    ExactMemory ip(whole.first(ipHeaderOctets));
    ExactMemory transport(whole.subspan(ipHeaderOctets));
    PacketDescriptor descriptor{};
    descriptor.flags = hostFlags;
    descriptor.moduleIpHeader = ip.begin();
    descriptor.transportHeader = transport.begin();
    descriptor.transportLength = static_cast<uint16_t>(octets.size() - ipHeaderOctets);
    const PacketDescriptor asked = descriptor;
    require(TarvexPacketOnSending(&context, &descriptor) == 0, "a hook returns 0");
    require(std::memcmp(reinterpret_cast<const uint8_t*>(&asked) + sizeof asked.flags,
                        reinterpret_cast<const uint8_t*>(&descriptor) + sizeof asked.flags,
                        sizeof asked - sizeof asked.flags) == 0,
            "the sending hook changes nothing in the descriptor but the flags");
    Octets after(ip.begin(), ip.end());
    after.insert(after.end(), transport.begin(), transport.end());
    return examine(descriptor, octets, std::move(after), ipHeaderOctets);
}

} // namespace fuzzing
