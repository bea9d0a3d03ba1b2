// The full scope under a sequence of packets (call_script.h): whole calls in any cut, strangers,
// hostile headers, time moving, a host that refuses.
//
// A connection begins with a handshake by itself: from inside, or from outside where the private
// party listens. Bit 6 of a step's parties leaves that out.
#include <map>
#include <tuple>

#include "fuzz/memory_meter.h"
#include "fuzz/module_state.h"
#include "fuzz/require.h"
#include "fuzz/script_packets.h"
#include "fuzz/script_player.h"
#include "nat/full/connections.h"
#include "nat/full/endpoints.h"
#include "nat/full/registrations.h"
#include "nat/full/scope.h"
#include "tests/support/fake_clock.h"

namespace fuzzing {

namespace {

using full_scope::Index;
using full_scope::none;
using full_scope::state;

constexpr uint32_t multicast = 0xE0000129;
constexpr uint8_t tcpFin = 1, tcpSyn = 2, tcpAck = 16;
constexpr uint32_t room = 3; // calls; few, so that records run out

// What only a private host's packet may add to.
struct Counts {
    uint32_t connections = state.connections.used;
    uint32_t registrations = state.registrations.used;
    uint32_t mappings = state.mappings.used;
    uint32_t claims = state.claims.used;
};

uint32_t recordsInUse() {
    return state.calls.used + state.connections.used + state.mappings.used + state.claims.used +
           state.announced.used + state.registrations.used + state.streams.blocks.used +
           state.streams.edits.used;
}

void requireSoundStream(const full_scope::Stream& stream, uint32_t& blocks, uint32_t& edits) {
    uint32_t held = 0;
    for (Index index = stream.firstBlock; index != none; ++held) {
        const full_scope::HeldBlock& block = state.streams.blocks[index];
        require(block.length != 0 && block.length <= full_scope::blockOctets,
                "a block holds what fits");
        require(held < stream.blocks, "a stream counts its blocks");
        const Index next = block.next;
        require(next == none || static_cast<int32_t>(state.streams.blocks[next].sequence -
                                                     (block.sequence + block.length)) >= 0,
                "no octet is in two blocks");
        index = next;
    }
    require(held == stream.blocks, "a stream counts its blocks");
    uint32_t remembered = 0;
    for (Index index = stream.newestEdit; index != none; index = state.streams.edits[index].next) {
        require(remembered++ < stream.edits, "a stream counts its edits");
    }
    require(remembered == stream.edits, "a stream counts its edits");
    blocks += held;
    edits += remembered;
}

void requireSoundState() {
    uint32_t connections = 0;
    uint32_t blocks = 0;
    uint32_t edits = 0;
    uint32_t unplaced = 0;
    for (const full_scope::Ages* ages : {&state.connectionAges, &state.overAges}) {
        for (Index index = ages->oldest; index != none; index = state.connections[index].newer) {
            const full_scope::Connection& connection = state.connections[index];
            require(++connections <= state.connections.used, "each connection is in one list");
            unplaced += connection.unplaced ? 1 : 0;
            requireSoundStream(connection.sent, blocks, edits);
            requireSoundStream(connection.received, blocks, edits);
        }
    }
    require(connections == state.connections.used, "each connection is in one list");
    require(unplaced == state.unplaced, "connections without a public end are counted");
    require(blocks == state.streams.blocks.used, "each block is some stream's");
    require(edits == state.streams.edits.used, "each edit is some stream's");
    uint32_t registrations = 0;
    for (const full_scope::Ages* ages : {&state.registrationAges, &state.unconfirmedAges}) {
        for (Index index = ages->oldest; index != none; index = state.registrations[index].newer) {
            require(++registrations <= state.registrations.used,
                    "each registration is in one list");
        }
    }
    require(registrations == state.registrations.used, "each registration is in one list");
    uint64_t filtered = 0;
    for (const uint16_t count : full_scope::quickLook.outside) {
        filtered += count;
    }
    require(filtered == connections + state.announced.used,
            "the filter counts connections and announced endpoints");
    uint64_t mappings = 0;
    for (const uint32_t count : state.mappingsOfHosts) {
        mappings += count;
    }
    require(mappings == state.mappings.used, "each mapping is some host's");
    require(state.claims.used >= state.mappings.used, "each mapping is needed by somebody");
}

class ScriptRun final : public ScriptPlayer {
public:
    ScriptRun() {
        memoryMeter().succeedFor(FailingAllocator::never);
        forgetCalls();
        require(full_scope::enter(room), "there is memory for the full scope");
        for (const uint32_t address : privateParties) {
            host.addresses.insert(address);
        }
        host.ports = {callSignallingPort, 1503};
    }
    ~ScriptRun() override {
        full_scope::leave();
        TarvexActivateInboundMapping(0);
    }
    ScriptRun(const ScriptRun&) = delete;
    ScriptRun& operator=(const ScriptRun&) = delete;

    void requireEndState() {
        while (state.connectionAges.oldest != none) {
            full_scope::forget(state.connectionAges.oldest, H323NAT_END_FORGOTTEN);
        }
        while (state.overAges.oldest != none) {
            full_scope::forget(state.overAges.oldest, H323NAT_END_FORGOTTEN);
        }
        for (const full_scope::Ages* ages : {&state.registrationAges, &state.unconfirmedAges}) {
            while (ages->oldest != none) {
                full_scope::dropRegistration(ages->oldest);
            }
        }
        full_scope::dropAnnounced();
        require(recordsInUse() == 0, "nothing stays when everything is over");
        host.requireWholeLists();
    }

private:
    [[nodiscard]] FlowKey insideFlow(const Step& step) const override {
        FlowKey flow = partiesOf(step, multicast);
        for (Index index = 1; step.remotePort == 0 && index <= state.announced.capacity; ++index) {
            const full_scope::Announced& announced = state.announced[index];
            if (announced.role != 0) {
                flow.destinationAddress = announced.outside.address;
                flow.destinationPort = announced.outside.port;
                break;
            }
        }
        return flow;
    }

    // Behind a connection's handshake both numbers are known.
    struct Numbers {
        uint32_t sent = firstSequence;
        uint32_t received = firstSequence + 0x800;
    };

    Numbers& numbersOf(const FlowKey& inside, bool begins) {
        const auto key = std::make_tuple(inside.sourceAddress, inside.destinationAddress,
                                         inside.sourcePort, inside.destinationPort);
        const auto [found, fresh] = numbers_.try_emplace(key);
        if (fresh && begins) {
            host.addFlow(inside);
            begin(inside, found->second);
        }
        return found->second;
    }

    void begin(const FlowKey& inside, Numbers& numbers) {
        const bool listens = inside.sourcePort == callSignallingPort ||
                             full_scope::findListening({inside.sourceAddress, inside.sourcePort});
        const TcpFields first = {directed(!listens, inside),
                                 listens ? numbers.received++ : numbers.sent++, tcpSyn, 0};
        exchange(!listens, tcpPacket(first, {}));
        const TcpFields answer = {directed(listens, inside),
                                  listens ? numbers.sent++ : numbers.received++, tcpSyn | tcpAck,
                                  listens ? numbers.received : numbers.sent};
        exchange(listens, tcpPacket(answer, {}));
    }

    void exchangeTcp(const Step& step) override {
        const bool sent = step.kind == StepKind::TcpSent;
        const FlowKey inside = insideFlow(step);
        Numbers& numbers = numbersOf(inside, (step.parties & 0x40) == 0);
        uint32_t& expected = sent ? numbers.sent : numbers.received;
        sendPieces(step, inside, expected, sent ? numbers.received : numbers.sent);
        expected += (step.flags & (tcpSyn | tcpFin)) != 0 ? 1 : 0;
    }

    void wait(int32_t seconds) override { clock_.advance(static_cast<unsigned>(seconds)); }

    void publish(uint32_t address) override { TarvexActivateInboundMapping(address); }

    void exchange(bool sent, const Octets& packet) override {
        memoryMeter().drainTakenOctets();
        const Counts before;
        const HookResult result =
            sent ? sendPacket(host.context, packet) : receivePacket(host.context, packet);
        require(memoryMeter().drainTakenOctets() == 0, "a packet takes no memory");
        if (sent) {
            anySent_ = true;
            if (result.changed) {
                host.requireOnlyHandedOut(packet, result.octets);
            }
            return;
        }
        const Counts after;
        require(after.connections <= before.connections && after.mappings <= before.mappings &&
                    after.claims <= before.claims && after.registrations <= before.registrations,
                "a packet from outside makes no connection, mapping or registration");
        require(anySent_ || recordsInUse() == 0, "what came from outside alone makes no state");
        if (result.changed) {
            requirePrivate(packet, result.octets);
        }
    }

    // What changed in a received packet became a private endpoint.
    static void requirePrivate(const Octets& before, const Octets& after) {
        size_t explained = 0;
        for (size_t i = 0; i < after.size(); ++i) {
            const bool address = i + 6 <= after.size() && after[i] == 10 && after[i + 1] == 0 &&
                                 after[i + 2] == 0 && (after[i + 3] == 5 || after[i + 3] == 6);
            explained = address ? i + 6 : explained;
            require(i < explained || before[i] == after[i],
                    "what is received changes in private endpoints alone");
        }
    }

    FakeClock clock_{1'000'000};
    bool anySent_ = false;
    std::map<std::tuple<uint32_t, uint32_t, uint16_t, uint16_t>, Numbers> numbers_;
};

} // namespace

} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    [[maybe_unused]] static const bool started = (startModule(), true);
    ScriptRun run;
    for (const Step& step : parseScript(data, size)) {
        run.play(step);
        requireSoundState();
    }
    run.requireEndState();
    return 0;
}
