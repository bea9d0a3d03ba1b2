// Whole recorded calls through the hooks, as the reference host passes them: header translation
// and checksums included. One iteration is one call.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "gateway/capture_file.h"
#include "gateway/link_layer.h"
#include "gateway/reference_host.h"

namespace {

// The IPv4 packets of a capture in samples/.
std::vector<std::vector<uint8_t>> readPackets(const std::string& name) {
    gateway::CaptureReader reader(H323NAT_SAMPLES "/" + name + ".pcap");
    gateway::CapturedFrame frame;
    std::vector<std::vector<uint8_t>> packets;
    while (reader.next(frame)) {
        const gateway::NetworkLayer layer = gateway::networkLayer(reader.linkType(), frame.octets);
        if (layer.protocol == gateway::NetworkProtocol::Ipv4) {
            packets.emplace_back(frame.octets.begin() + static_cast<ptrdiff_t>(layer.offset),
                                 frame.octets.end());
        }
    }
    return packets;
}

// Sequence numbers of another call: those of the call before would be repetitions of its segments.
void renumber(std::vector<uint8_t>& packet, uint32_t call) {
    constexpr uint8_t tcp = 6;
    constexpr uint32_t distance = 1'000'000;
    const size_t header = (packet[0] & 0x0FU) * 4U;
    if (packet[9] != tcp || packet.size() < header + 20) {
        return;
    }
    for (const size_t field : {header + 4, header + 8}) {
        uint32_t number = 0;
        for (size_t i = 0; i < 4; ++i) {
            number = number << 8 | packet[field + i];
        }
        number += call * distance;
        for (size_t i = 0; i < 4; ++i) {
            packet[field + i] = static_cast<uint8_t>(number >> (24 - 8 * i));
        }
    }
}

enum class Way { lossless, strict, full };

void call(benchmark::State& state, const std::string& name, Way way) {
    gateway::ReferenceHostSettings settings;
    settings.inside = *gateway::parseNetwork("10.0.0.0/24");
    settings.publicAddress = 0xCB007101U;
    settings.publishedAddress = 0x0A000005U;
    settings.lossless = way != Way::strict;
    settings.fullScope = way == Way::full;
    gateway::ReferenceHost host(settings);
    const std::vector<std::vector<uint8_t>> packets = readPackets(name);
    std::vector<uint8_t> copy;
    gateway::Seconds now = 1000;
    uint32_t call = 0;
    for (auto _ : state) {
        ++now;
        ++call;
        if (way != Way::full) {
            // Its connections are known by their ends alone, which are the same in each call.
            H323SetTranslationScope(H323NAT_SCOPE_LISTED, 0);
            TarvexActivateInboundMapping(settings.publishedAddress);
        }
        for (const std::vector<uint8_t>& packet : packets) {
            copy = packet;
            renumber(copy, call);
            host.process(copy, now);
        }
    }
    state.counters["packets/s"] = benchmark::Counter(static_cast<double>(packets.size()),
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK_CAPTURE(call, outbound_fast_start, "fast-tun", Way::lossless);
BENCHMARK_CAPTURE(call, outbound_fast_start_full, "fast-tun", Way::full);
BENCHMARK_CAPTURE(call, outbound_h245, "h245", Way::lossless);
BENCHMARK_CAPTURE(call, outbound_h245_full, "h245", Way::full);
BENCHMARK_CAPTURE(call, outbound_h245_strict, "h245", Way::strict);
BENCHMARK_CAPTURE(call, inbound_h245, "in-h245", Way::lossless);
BENCHMARK_CAPTURE(call, inbound_h245_full, "in-h245", Way::full);
BENCHMARK_CAPTURE(call, registration_and_call, "gk-direct", Way::lossless);
BENCHMARK_CAPTURE(call, registration_and_call_full, "gk-direct", Way::full);

} // namespace

BENCHMARK_MAIN();
