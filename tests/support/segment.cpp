#include "tests/support/segment.h"

#include <gtest/gtest.h>

#include "tests/support/host_packet.h"

namespace test_support {

namespace {

using HookRun = bool (HostPacket::*)(HostContext*);

Delivered runHook(HookRun hook, HostContext& hostContext, const Segment& segment) {
    const FlowKey& flow = segment.flow;
    const TcpFields fields = {flow.sourceAddress,   flow.destinationAddress, flow.sourcePort,
                              flow.destinationPort, segment.sequence,        segment.flags,
                              segment.payload,      segment.acknowledgement};
    HostPacket packet = segment.udp ? HostPacket::udp(fields) : HostPacket(fields);
    const Octets headers(packet.ip(), packet.payload());
    Delivered delivered;
    delivered.changed = (packet.*hook)(&hostContext);
    EXPECT_EQ(Octets(packet.ip(), packet.payload()), headers);
    delivered.payload.assign(packet.payload(), packet.payload() + segment.payload.size());
    return delivered;
}

} // namespace

Delivered sendSegment(HostContext& hostContext, const Segment& segment) {
    return runHook(&HostPacket::send, hostContext, segment);
}

Delivered receiveSegment(HostContext& hostContext, const Segment& segment) {
    return runHook(&HostPacket::receive, hostContext, segment);
}

} // namespace test_support
