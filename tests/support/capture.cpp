#include "tests/support/capture.h"

#include <memory>
#include <stdexcept>

#include <pcap/pcap.h>

#include "tests/support/memory_host.h"

namespace test_support {

namespace {

constexpr size_t ethernetHeader = 14;
constexpr uint16_t rasPort = 1719;
constexpr uint8_t protocolTcp = 6;

uint16_t read16(const uint8_t* octets) {
    return static_cast<uint16_t>(octets[0] << 8 | octets[1]);
}

uint32_t read32(const uint8_t* octets) {
    return static_cast<uint32_t>(read16(octets)) << 16 | read16(octets + 2);
}

/// False for media. The captures are the project's own: whole frames, IPv4, TCP and UDP only.
bool readFrame(const uint8_t* frame, CapturedPacket& packet) {
    const uint8_t* ip = frame + ethernetHeader;
    const uint8_t* transport = ip + (ip[0] & 15) * 4;
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
    segment.payload.assign(transport + (transport[12] >> 4) * 4, end);
    return true;
}

} // namespace

std::vector<CapturedPacket> readCapture(const std::string& name) {
    const std::string path = std::string(H323NAT_SAMPLES) + "/" + name + ".pcap";
    char error[PCAP_ERRBUF_SIZE] = {};
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> file(
        pcap_open_offline(path.c_str(), error), &pcap_close);
    if (file == nullptr) {
        throw std::runtime_error(error);
    }
    std::vector<CapturedPacket> packets;
    pcap_pkthdr* header = nullptr;
    const uint8_t* frame = nullptr;
    for (size_t number = 0; pcap_next_ex(file.get(), &header, &frame) == 1; ++number) {
        CapturedPacket packet;
        packet.frame = number;
        if (readFrame(frame, packet)) {
            packets.push_back(std::move(packet));
        }
    }
    return packets;
}

} // namespace test_support
