// The two hooks under a sequence of packets: whole calls in any cut, hostile headers, time moving,
// a host that refuses or runs short of memory.
#include <algorithm>
#include <map>
#include <tuple>

#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "fuzz/memory_meter.h"
#include "fuzz/module_state.h"
#include "fuzz/require.h"
#include "fuzz/script_host.h"
#include "fuzz/script_packets.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/support/fake_clock.h"

namespace fuzzing {

namespace {

constexpr unsigned startTime = 1'000'000;
constexpr uint16_t backwards = 0xFFFF;

// What the module keeps between messages for the next one: blocks, buffers.
constexpr size_t mostKeptAllocations = 2 * poolSize + PER_POOL_BLOCKS + PER_POOL_BUFFERS;

class ScriptRun {
public:
    ScriptRun() {
        memoryMeter().succeedFor(FailingAllocator::never);
        forgetCalls();
        setRewriteMode(REWRITE_ENCODED);
    }

    void run(const Step& step) {
        switch (step.kind) {
        case StepKind::TcpSent:
        case StepKind::TcpReceived:
            exchangeTcp(step);
            break;
        case StepKind::UdpSent:
        case StepKind::UdpReceived:
            exchange(step.kind == StepKind::UdpSent,
                     udpPacket(directed(step.kind == StepKind::UdpSent, insideFlow(step)),
                               step.payload));
            break;
        case StepKind::RawSent:
        case StepKind::RawReceived:
            exchangeRaw(step);
            break;
        case StepKind::Wait:
            clock_.advance(step.localPort == backwards ? -3600u : step.localPort);
            break;
        case StepKind::Publish:
            publish((step.parties & 0x80) != 0 ? 0 : privateParties[step.parties & 1]);
            break;
        case StepKind::Settings:
            apply(step);
            break;
        }
        requireConsistentState();
    }

    void requireEndState() const {
        requireClearFreeRecords();
        host_.requireWholeLists();
    }

private:
    void apply(const Step& step) {
        const auto has = [&](HostSetting setting) { return (step.flags & setting) != 0; };
        host_.settings = step.flags;
        setRewriteMode(has(settingLossless) ? REWRITE_LOSSLESS : REWRITE_ENCODED);
        memoryMeter().succeedFor(has(settingMemoryShort) ? step.localPort
                                                         : FailingAllocator::never);
    }

    void publish(uint32_t address) {
        TarvexActivateInboundMapping(address);
        host_.addresses.insert(address);
    }

    static FlowKey insideFlow(const Step& step) {
        FlowKey flow = partiesOf(step, ScriptHost::publicAddress);
        if (step.localPort == 0) {
            flow.sourcePort = inboundMappingState.publishedControlPort;
        }
        const ListLink& active = controlChannelPool.activeList;
        if (step.remotePort == 0 && active.next != &active) {
            const auto* control = static_cast<const ControlChannelConnection*>(active.next);
            flow.destinationAddress = control->remoteEndpoint.address;
            flow.destinationPort = control->remoteEndpoint.port;
        }
        return flow;
    }

    void exchangeTcp(const Step& step) {
        const bool sent = step.kind == StepKind::TcpSent;
        const FlowKey inside = insideFlow(step);
        const FlowKey flow = directed(sent, inside);
        host_.addFlow(inside);
        uint32_t& expected = nextSequence(flow);
        const uint32_t sequence = expected + static_cast<uint32_t>(int32_t{step.shift});
        for (const Piece& piece : piecesOf(step)) {
            exchange(sent, tcpPacket({flow, sequence + piece.offset, step.flags}, piece.octets));
            expected = sequence + piece.offset + static_cast<uint32_t>(piece.octets.size());
        }
    }

    void exchangeRaw(const Step& step) {
        const bool sent = step.kind == StepKind::RawSent;
        exchange(sent, sent ? rawPacket(step, insideFlow(step)) : step.payload);
    }

    void exchange(bool sent, const Octets& packet) {
        if (packet.size() > UINT16_MAX) {
            return;
        }
        memoryMeter().drainTakenOctets();
        const HookResult result =
            sent ? sendPacket(host_.context, packet) : receivePacket(host_.context, packet);
        // A segment completes what the buffer held; fast start nests messages in messages.
        require(memoryMeter().drainTakenOctets() <=
                    memoryBound(2 * (packet.size() + streamBufferCapacity), H245MemoryPerOctet),
                "the memory taken for a packet is bounded by its size");
        require(memoryMeter().liveBlocks() <= mostKeptAllocations,
                "a packet leaves no memory behind");
        if (rewriteMode == REWRITE_LOSSLESS && result.changed) {
            host_.requireOnlyHandedOut(packet, result.octets);
        }
    }

    uint32_t& nextSequence(const FlowKey& flow) {
        const auto key = std::make_tuple(flow.sourceAddress, flow.destinationAddress,
                                         flow.sourcePort, flow.destinationPort);
        return sequences_.try_emplace(key, firstSequence).first->second;
    }

    FakeClock clock_{startTime};
    ScriptHost host_;
    std::map<std::tuple<uint32_t, uint32_t, uint16_t, uint16_t>, uint32_t> sequences_;
};

} // namespace

} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    [[maybe_unused]] static const bool started = (startModule(), true);
    ScriptRun run;
    for (const Step& step : parseScript(data, size)) {
        run.run(step);
    }
    run.requireEndState();
    return 0;
}
