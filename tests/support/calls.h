// One outbound and one inbound call, segment by segment, each with an H.245 connection.
#pragma once

#include "tests/support/capture.h"
#include "tests/support/memory_host.h"

namespace test_support {

/// One direction of a TCP connection: numbers its segments.
class Stream {
public:
    Stream(const FlowKey& flow, uint32_t firstSequence) : flow_(flow), next_(firstSequence) {}

    /// The next segment of the stream.
    Segment next(const Octets& payload) {
        Segment segment{flow_, false, next_, tcpAck, payload};
        next_ += static_cast<uint32_t>(payload.size());
        return segment;
    }

    const FlowKey& flow() const { return flow_; }

private:
    FlowKey flow_;
    uint32_t next_;
};

/// A call from the private party to the outside party. Constructing it accepts the signalling
/// connection, announceControl gives it an H.245 channel.
struct OutboundCall {
    explicit OutboundCall(MemoryHost& memoryHost);

    Delivered fromCaller(const Octets& message) { return host.send(caller.next(message)); }
    Delivered fromCalled(const Octets& message) { return host.receive(called.next(message)); }
    Delivered onControl(const Octets& message) { return host.send(control.next(message)); }

    void announceControl();

    static constexpr uint16_t controlPort = 38333;

    MemoryHost& host;
    Stream caller;
    Stream called;
    Stream control; // from the caller
    HostMappingRecord* signallingRecord;
    HostMappingRecord* controlRecord;
};

/// A call from the outside party to the published private party.
struct InboundCall {
    explicit InboundCall(MemoryHost& memoryHost);

    Delivered fromRemote(const Octets& message) { return host.receive(remote.next(message)); }
    Delivered fromPublished(const Octets& message) { return host.send(published.next(message)); }
    Delivered onControl(const Octets& message) { return host.send(control.next(message)); }

    void announceControl();

    static constexpr uint16_t controlPort = 47231;

    MemoryHost& host;
    Stream remote;
    Stream published;
    Stream control; // from the published host
    HostMappingRecord* controlRecord;
};

} // namespace test_support
