// A NAT host for the full scope: private hosts and outside parties that open connections, exchange
// messages and listen to what the module asks and tells.
#pragma once

#include <deque>
#include <set>
#include <string>
#include <vector>

#include "nat/flow_key.h"
#include "nat/full/state.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/messages.h"
#include "tests/support/segment.h"

namespace test_support {

constexpr uint32_t publicAddress = address(203, 0, 113, 1);
constexpr uint32_t otherPrivateParty = address(10, 0, 0, 6);

std::string text(const EndpointKey& endpoint);

/// As messages are made of it.
TestAddress at(const EndpointKey& endpoint);

/// Writes down what an observer is told, in either scope; one at a time.
class ToldLines {
public:
    ToldLines();
    ~ToldLines();
    ToldLines(const ToldLines&) = delete;
    ToldLines& operator=(const ToldLines&) = delete;

    std::vector<std::string> lines;
    std::set<uint64_t> callsOfMessages;
};

/// One host of this kind exists at a time, in the full scope with room for `calls` calls.
class FullHost {
public:
    explicit FullHost(uint32_t calls = 8);
    ~FullHost();
    FullHost(const FullHost&) = delete;
    FullHost& operator=(const FullHost&) = delete;

    /// What stands for a private endpoint outside, when the host maps it: port 5000 of 10.0.0.5 is
    /// 15000, of 10.0.0.6 25000.
    static EndpointKey publicOf(const EndpointKey& inside);

    Octets send(const Segment& segment) { return sendSegment(context, segment).payload; }
    Octets receive(const Segment& segment) { return receiveSegment(context, segment).payload; }
    Octets sendDatagram(const EndpointKey& inside, const EndpointKey& outside,
                        const Octets& message);
    Octets receiveDatagram(const EndpointKey& outside, const EndpointKey& publicEndpoint,
                           const Octets& message);

    /// A GRQ of the host, and a gatekeeper's GCF to its mapped RAS endpoint.
    void discover(const EndpointKey& ras = {privateParty, 1719}, uint32_t keeper = gatekeeper);

    /// The lines since the last call, in order: "media 10.0.0.5:5000 > 1.1.1.1".
    std::vector<std::string> takeAsked();
    /// What the observer was told: "message sent setup", "rewritten PATH FROM TO",
    /// "left PATH FROM CAUSE", "began 1 sent 10.0.0.5:50000 203.0.113.9:1720", "ended 1 END CAUSE",
    /// "announced ROLE INSIDE PUBLIC OUTSIDE", "over ...". Paths without the members that all have.
    std::vector<std::string> takeTold(const std::string& word = "");

    FakeClock clock{1'000'000};
    HostContext context = {};
    std::set<uint16_t> refusedPorts; // inside
    uint16_t moved = 0;              // added to the public ports that are answered
    std::vector<std::string> asked;
    ToldLines observer;
    std::vector<std::string>& told = observer.lines;

private:
    friend struct FullHostCallbacks;
    struct Flow {
        EndpointKey inside;
        EndpointKey publicEndpoint;
        EndpointKey outside;
    };
    friend class TcpCall;
    std::deque<Flow> flows_; // newest first
    HostMappingRecord record_ = {};
};

/// One TCP connection between a private host and an outside party, by segments.
class TcpCall {
public:
    enum class Opened { byPrivate, byOutside };

    /// With the handshake.
    TcpCall(FullHost& host, const EndpointKey& inside, const EndpointKey& outside,
            Opened opened = Opened::byPrivate, uint32_t sentFirst = 1000,
            uint32_t receivedFirst = 0xfffffff0);
    /// From outside, to a public endpoint that the host program forwards to `inside`.
    TcpCall(FullHost& host, const EndpointKey& inside, const EndpointKey& outside, Opened opened,
            const EndpointKey& publicEndpoint);

    /// The next octets of a direction; gives what went on.
    Octets sent(const Octets& payload);
    Octets received(const Octets& payload);

    /// Octets anywhere in a direction, counted from its first one.
    Octets sentAt(size_t offset, const Octets& payload, uint8_t flags = tcpAck);
    Octets receivedAt(size_t offset, const Octets& payload, uint8_t flags = tcpAck);

    /// FIN of both.
    void close();

    const EndpointKey inside;
    const EndpointKey publicEndpoint;
    const EndpointKey outside;
    size_t sentSoFar = 0;
    size_t receivedSoFar = 0;

private:
    void begin(Opened opened);
    Octets pass(bool sent, uint32_t offset, uint8_t flags, const Octets& payload);

    FullHost& host_;
    uint32_t sentFirst_;
    uint32_t receivedFirst_;
};

/// An encoding with the places of its addresses.
struct PlacedMessage {
    std::string type; // "H225RasMessage"
    Octets octets;
    struct Place {
        std::string path;
        size_t offset;
    };
    std::vector<Place> places;
};
const std::vector<PlacedMessage>& placedMessages();

/// The shortest one that has a place whose path has this part, with this endpoint there.
Octets messageWith(const std::string& pathPart, const EndpointKey& endpoint);

/// A call that a private host has begun with a Setup; a Connect with this h245Address; an
/// OpenLogicalChannel with this mediaChannel.
Octets plainSetup();
Octets connectWith(const EndpointKey& h245Address);
Octets openChannel(const EndpointKey& media);

/// The private party's call to port 1720 outside whose H.245 connection is open.
struct ControlledCall {
    explicit ControlledCall(FullHost& host, const EndpointKey& inside = {privateParty, 50000},
                            const EndpointKey& control = {outsideParty, 38333},
                            uint32_t sentFirst = 1000);

    TcpCall call;
    TcpCall h245;
};

/// The endpoint that a message's first rewritten address became; 0 when none was.
EndpointKey firstRewritten(const Octets& before, const Octets& after);

EndpointKey endpointAt(const Octets& octets, size_t offset);
void setEndpoint(Octets& octets, size_t offset, const EndpointKey& endpoint);

/// Records in use, of all kinds.
size_t recordsInUse();

} // namespace test_support
