// The two hooks under a sequence of packets: whole calls in any cut, hostile headers, time moving,
// a host that refuses or runs short of memory.
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "fuzz/memory_meter.h"
#include "fuzz/module_state.h"
#include "fuzz/require.h"
#include "fuzz/script_packets.h"
#include "fuzz/script_player.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/support/fake_clock.h"

namespace fuzzing {

namespace {

constexpr unsigned startTime = 1'000'000;

// What the module keeps between messages for the next one: blocks, buffers.
constexpr size_t mostKeptAllocations = 2 * poolSize + PER_POOL_BLOCKS + PER_POOL_BUFFERS;

class ScriptRun final : public ScriptPlayer {
public:
    ScriptRun() {
        memoryMeter().succeedFor(FailingAllocator::never);
        forgetCalls();
        setRewriteMode(REWRITE_ENCODED);
    }

    void requireEndState() const {
        requireClearFreeRecords();
        host.requireWholeLists();
    }

private:
    void apply(const Step& step) override {
        const auto has = [&](HostSetting setting) { return (step.flags & setting) != 0; };
        ScriptPlayer::apply(step);
        setRewriteMode(has(settingLossless) ? REWRITE_LOSSLESS : REWRITE_ENCODED);
        memoryMeter().succeedFor(has(settingMemoryShort) ? step.localPort
                                                         : FailingAllocator::never);
    }

    void wait(int32_t seconds) override { clock_.advance(static_cast<unsigned>(seconds)); }

    void publish(uint32_t address) override {
        TarvexActivateInboundMapping(address);
        host.addresses.insert(address);
    }

    [[nodiscard]] FlowKey insideFlow(const Step& step) const override {
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

    void exchange(bool sent, const Octets& packet) override {
        memoryMeter().drainTakenOctets();
        const HookResult result =
            sent ? sendPacket(host.context, packet) : receivePacket(host.context, packet);
        // A segment completes what the buffer held; fast start nests messages in messages.
        require(memoryMeter().drainTakenOctets() <=
                    memoryBound(2 * (packet.size() + streamBufferCapacity), H245MemoryPerOctet),
                "the memory taken for a packet is bounded by its size");
        require(memoryMeter().liveBlocks() <= mostKeptAllocations,
                "a packet leaves no memory behind");
        if (rewriteMode == REWRITE_LOSSLESS && result.changed) {
            host.requireOnlyHandedOut(packet, result.octets);
        }
    }

    FakeClock clock_{startTime};
};

} // namespace

} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    [[maybe_unused]] static const bool started = (startModule(), true);
    ScriptRun run;
    for (const Step& step : parseScript(data, size)) {
        run.play(step);
        requireConsistentState();
    }
    run.requireEndState();
    return 0;
}
