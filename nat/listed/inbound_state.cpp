#include "nat/listed/inbound_state.h"

#include <memory>

#include "nat/listed/observed.h"
#include "nat/wall_clock.h"

InboundMappingState inboundMappingState;

void ResetInboundMapping() {
    // In place: an assignment would build the whole state on the host's stack first.
    std::construct_at(&inboundMappingState);
}

static bool inboundCallIsIdle() {
    // The distance to 0, a state without a call, is negative for half of all times.
    const uint32_t lastActivity = inboundMappingState.lastActivity;
    return lastActivity == 0 || isIdle(wallClockSeconds(), lastActivity);
}

void ActivateInboundMapping(uint32_t address) {
    if (address != 0 && address == inboundMappingState.publishedAddress && !inboundCallIsIdle()) {
        return;
    }
    observeInboundEnd(H323NAT_END_FORGOTTEN);
    ResetInboundMapping();
    inboundMappingState.publishedAddress = address;
}

void BeginInboundCall(uint32_t remoteAddress, uint16_t remotePort) {
    if (remoteAddress != inboundMappingState.remoteAddress && !inboundCallIsIdle()) {
        return;
    }
    const uint32_t publishedAddress = inboundMappingState.publishedAddress;
    observeInboundEnd(H323NAT_END_FORGOTTEN);
    ResetInboundMapping();
    inboundMappingState.publishedAddress = publishedAddress;
    inboundMappingState.lastActivity = wallClockSeconds();
    inboundMappingState.remoteAddress = remoteAddress;
    inboundMappingState.remoteSignallingPort = remotePort;
    observeInboundBegin();
}

uint32_t AppendInboundSegment(StreamBuffer& buffer, const StreamSegment& segment,
                              const MessageProcessor& processor) {
    if (segment.length == 0) {
        return 0;
    }
    inboundMappingState.lastActivity = wallClockSeconds();
    observeCallNumber(inboundMappingState.callNumber);
    if (placeSegment(buffer, segment, inboundBufferCapacity) != Placement::placed) {
        return 0;
    }
    processHeldMessages(buffer, segment.payload, processor);
    const uint32_t changed = buffer.messageChanged;
    buffer.messageChanged = 0;
    return changed;
}
