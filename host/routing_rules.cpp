#include "host/routing_rules.h"

#include "nat/host_callbacks.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_control.h"
#include "nat/listed/inbound_signalling.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/observed.h"
#include "nat/listed/outbound_control.h"
#include "nat/listed/outbound_signalling.h"
#include "nat/listed/ras.h"

// The result by which a translator says that it rewrote the payload. Anything else means no.
static constexpr uint32_t rewritten = 1;

// A rule answers whether the packet changed.
using Rule = bool (*)(HostContext* hostContext, const TcpSegment& segment);

// From the called party of an outbound call.
static bool receiveOutboundSignalling(HostContext*, const TcpSegment& segment) {
    if (segment.flow.sourcePort == callSignallingPort &&
        (segment.length != 0 || (segment.syn && segment.ack))) {
        ReceiveCallSignalSegment(segment.flow, segment.payload, segment.length, segment.sequence);
    }
    return false;
}

// The host's record of an H.245 connection that the host knows; null when it knows none.
static HostMappingRecord* hostRecordOf(const ControlChannelConnection& control) {
    const FlowKey& flow = control.insideFlow;
    return hostCallbacks.HostFindInsideMapping(flow.sourceAddress, flow.sourcePort,
                                               flow.destinationAddress, flow.destinationPort);
}

// Ties the host's record of a T.120 connection to the record of the H.245 connection of its call.
static bool receiveT120(HostContext*, const TcpSegment& segment) {
    const FlowKey& flow = segment.flow;
    if (flow.sourcePort != t120Port) {
        return false;
    }
    HostMappingRecord* record = hostCallbacks.HostFindOutsideMapping(
        flow.destinationAddress, flow.destinationPort, flow.sourceAddress, flow.sourcePort);
    if (record == nullptr || record->controlLink != nullptr) {
        return false;
    }
    const CallSignalConnection* call = findByCalledParty(flow.sourceAddress);
    if (call == nullptr || call->controlChannel == nullptr) {
        return false;
    }
    HostMappingRecord* control = hostRecordOf(*call->controlChannel);
    if (control != nullptr) {
        record->controlLink = control;
    }
    return false;
}

// From the outside party of an inbound call.
static bool receiveInboundSignalling(HostContext* hostContext, const TcpSegment& segment) {
    const FlowKey& flow = segment.flow;
    return flow.destinationPort == callSignallingPort &&
           InboundSignallingFromRemote(hostContext, flow.sourceAddress, flow.sourcePort,
                                       segment.payload, segment.length, segment.sequence,
                                       segment.syn ? 1 : 0) == rewritten;
}

static bool isFollowed(const CallSignalConnection* call) {
    observeCallNumber(call == nullptr ? 0 : call->callNumber);
    return call != nullptr;
}

static bool sendOutboundSignalling(HostContext* hostContext, const TcpSegment& segment) {
    return segment.flow.destinationPort == callSignallingPort &&
           isFollowed(findByInsideFlow(segment.flow)) &&
           SendCallSignalSegment(hostContext, segment.payload, segment.length) == rewritten;
}

static bool sendOutboundControl(HostContext* hostContext, const TcpSegment& segment) {
    const FlowKey& flow = segment.flow;
    ControlChannelConnection* control =
        findByRemoteEndpoint({flow.destinationAddress, flow.destinationPort});
    if (control == nullptr) {
        return false;
    }
    if (control->flowKnown == 0) {
        control->insideFlow = flow;
        control->flowKnown = 1;
    }
    control->hostContext = hostContext;
    observeCallNumber(control->callNumber);
    return SendControlSegment(*control, segment.payload, segment.length, segment.sequence) ==
           rewritten;
}

// Whether the published host sends this to the outside party of its call.
static bool isOfInboundCall(const FlowKey& flow) {
    return inboundMappingState.publishedAddress != 0 &&
           flow.sourceAddress == inboundMappingState.publishedAddress &&
           flow.destinationAddress == inboundMappingState.remoteAddress;
}

static bool sendInboundSignalling(HostContext* hostContext, const TcpSegment& segment) {
    return isOfInboundCall(segment.flow) && segment.flow.sourcePort == callSignallingPort &&
           segment.flow.destinationPort == inboundMappingState.remoteSignallingPort &&
           InboundSignallingToRemote(hostContext, segment.payload, segment.length,
                                     segment.sequence) == rewritten;
}

static bool sendInboundControl(HostContext* hostContext, const TcpSegment& segment) {
    if (!isOfInboundCall(segment.flow) ||
        segment.flow.sourcePort != inboundMappingState.publishedControlPort) {
        return false;
    }
    inboundMappingState.remoteControlPort = segment.flow.destinationPort;
    return InboundControlToRemote(hostContext, segment.payload, segment.length, segment.sequence) ==
           rewritten;
}

static constexpr Rule receivingRules[] = {receiveOutboundSignalling, receiveT120,
                                          receiveInboundSignalling};

static constexpr Rule sendingRules[] = {sendOutboundSignalling, sendOutboundControl,
                                        sendInboundSignalling, sendInboundControl};

bool applyReceivingRules(HostContext* hostContext, const TcpSegment& segment) {
    bool changed = false;
    observePacket(H323NAT_RECEIVED, segment.flow);
    for (const Rule rule : receivingRules) {
        changed |= rule(hostContext, segment);
    }
    return changed;
}

bool applySendingRules(HostContext* hostContext, const TcpSegment& segment) {
    observePacket(H323NAT_SENT, segment.flow);
    for (const Rule rule : sendingRules) {
        if (rule(hostContext, segment)) {
            return true;
        }
    }
    return false;
}

bool applyRasRule(HostContext* hostContext, const UdpDatagram& datagram) {
    observePacket(H323NAT_SENT, datagram.flow);
    return TranslateRasMessage(hostContext, datagram.payload, datagram.length,
                               datagram.flow.destinationAddress) == rewritten;
}
