#include "tests/support/capture.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/memory_host.h"

namespace test_support {

namespace {

constexpr size_t fileHeader = 24;
constexpr size_t frameHeader = 16;
constexpr size_t ethernetHeader = 14;
constexpr uint16_t rasPort = 1719;
constexpr uint8_t protocolTcp = 6;

uint16_t read16(const uint8_t* octets) {
    return static_cast<uint16_t>(octets[0] << 8 | octets[1]);
}

uint32_t read32(const uint8_t* octets) {
    return static_cast<uint32_t>(read16(octets)) << 16 | read16(octets + 2);
}

/// False for media. The captures are the project's own: pcap files of little-endian machines, whole
/// frames, IPv4, TCP and UDP only. So they need no library, which other systems might lack.
bool readFrame(const uint8_t* frame, CapturedPacket& packet) {
    const uint8_t* ip = frame + ethernetHeader;
    const uint8_t* transport = ip + size_t{ip[0] & 15U} * 4;
    const uint8_t* end = ip + read16(ip + 2);
    Segment& segment = packet.segment;
    segment.flow = {read32(ip + 12), read32(ip + 16), read16(transport), read16(transport + 2)};
    segment.udp = ip[9] != protocolTcp;
    packet.sent = segment.flow.sourceAddress == privateParty;
    if (!packet.sent) {
        segment.flow.destinationAddress = MemoryHost::publicAddress;
    }
    if (segment.udp) {
        segment.payload.assign(transport + 8, end);
        return segment.flow.sourcePort == rasPort || segment.flow.destinationPort == rasPort;
    }
    segment.sequence = read32(transport + 4);
    segment.flags = transport[13];
    segment.payload.assign(transport + size_t{transport[12] & 0xF0U} / 4, end);
    return true;
}

} // namespace

std::vector<CapturedPacket> readCapture(const std::string& name) {
    const std::string path = std::string(H323NAT_SAMPLES) + "/" + name + ".pcap";
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> octets(std::istreambuf_iterator<char>(file), {});
    if (octets.size() < fileHeader) {
        throw std::runtime_error(path + " cannot be read");
    }
    std::vector<CapturedPacket> packets;
    size_t at = fileHeader;
    for (size_t number = 0; at + frameHeader <= octets.size(); ++number) {
        uint32_t length = 0;
        std::memcpy(&length, &octets[at + 8], sizeof length);
        at += frameHeader;
        if (length > octets.size() - at) {
            throw std::runtime_error(path + " ends inside a frame");
        }
        CapturedPacket packet;
        packet.frame = number;
        if (readFrame(reinterpret_cast<const uint8_t*>(octets.data()) + at, packet)) {
            packets.push_back(std::move(packet));
        }
        at += length;
    }
    return packets;
}

} // namespace test_support
