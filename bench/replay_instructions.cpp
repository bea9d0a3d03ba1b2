// Instructions of a replay per packet of a capture that is media alone, reading and writing the
// files included, counted by callgrind. Run by scripts/bench.sh --instructions. With a file's name
// it only writes such a capture: `bench_replay_instructions media.pcap 1000000`.

#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "gateway/ipv4_packet.h"
#include "gateway/replay.h"

namespace {

constexpr uint32_t publicAddress = 0xCB007101U; // 203.0.113.1
constexpr uint32_t privateNetwork = 0x0A000000U;
constexpr uint32_t packetsCounted = 20000; // scripts/bench_table.py
constexpr uint32_t streams = 40;           // each both ways

void put32(std::ostream& out, uint32_t number) {
    out.write(reinterpret_cast<const char*>(&number), sizeof number);
}

// A packet of G.711, 20 ms long, as it reaches the router.
std::vector<uint8_t> mediaPacket(uint32_t number) {
    constexpr size_t rtpOctets = 12 + 160;
    const bool sent = number % 2 == 0;
    const uint32_t stream = number / 2 % streams;
    const gateway::Endpoint inside{privateNetwork + 5 + stream / 4,
                                   static_cast<uint16_t>(5000 + 2 * (stream % 4))};
    const gateway::Endpoint outside{0xC6336400U + stream, 6000};
    std::vector<uint8_t> payload(rtpOctets);
    for (size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<uint8_t>(number * 7 + i);
    }
    std::vector<uint8_t> packet = sent ? gateway::datagram(inside, outside, payload)
                                       : gateway::datagram(outside, inside, payload);
    gateway::PacketLayout layout;
    gateway::classifyPacket(packet, layout);
    packet[layout.ipHeaderLength + 6] = 1; // a checksum is wanted
    gateway::recomputeChecksums(packet, layout);
    return packet;
}

void writeCapture(const std::string& path, uint32_t packets) {
    constexpr uint32_t rawIp = 101;
    std::ofstream out(path, std::ios::binary);
    for (const uint32_t word : {0xA1B2C3D4U, 0x00040002U, 0U, 0U, 262144U, rawIp}) {
        put32(out, word);
    }
    for (uint32_t i = 0; i < packets; ++i) {
        const std::vector<uint8_t> packet = mediaPacket(i);
        const auto length = static_cast<uint32_t>(packet.size());
        for (const uint32_t word : {1000 + i / 4000, i % 4000 * 250, length, length}) {
            put32(out, word);
        }
        out.write(reinterpret_cast<const char*>(packet.data()), length);
    }
}

class Silence final : public gateway::ReplayListener {
public:
    void onMapping(const gateway::CapturedFrame&, const gateway::MappingRequest&) override {}
    void onMessage(const gateway::CapturedFrame&, const gateway::ReportedMessage&,
                   const std::vector<gateway::ReportedAddress>&) override {}
};

void replay(const std::string& from, const std::string& to) {
    gateway::ReferenceHostSettings settings;
    settings.inside = {privateNetwork, 24};
    settings.publicAddress = publicAddress;
    settings.fullScope = true;
    gateway::CaptureReader reader(from);
    gateway::CaptureWriter writer(to, reader);
    Silence listener;
    gateway::Replay replay(settings, reader.linkType(), listener,
                           [&writer](const auto& frame) { writer.write(frame); });
    gateway::CapturedFrame frame;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    while (reader.next(frame)) {
        replay.process(frame);
    }
    replay.finish();
    writer.finish();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT("replay media");
    if (replay.totals().count(gateway::Verdict::Translated) != replay.totals().packets) {
        std::cerr << "not every packet was translated\n";
        std::exit(2);
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count == 3) {
        writeCapture(arguments[1], static_cast<uint32_t>(std::stoul(arguments[2])));
        return 0;
    }
    const std::string folder = std::getenv("TMPDIR") == nullptr ? "/tmp" : std::getenv("TMPDIR");
    const std::string from = folder + "/h323nat-bench-media.pcap";
    const std::string to = folder + "/h323nat-bench-translated.pcap";
    writeCapture(from, packetsCounted);
    replay(from, to);
    std::remove(from.c_str());
    std::remove(to.c_str());
    return 0;
}
