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
    for (auto _ : state) {
        ++now;
        for (const std::vector<uint8_t>& packet : packets) {
            copy = packet;
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
