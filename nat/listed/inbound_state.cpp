#include "nat/listed/inbound_state.h"

#include <memory>

#include "nat/wall_clock.h"

InboundMappingState inboundMappingState;

void ResetInboundMapping() {
    // In place: an assignment would build the whole state on the host's stack first.
    std::construct_at(&inboundMappingState);
}

static bool inboundCallIsIdle() {
    return isIdle(wallClockSeconds(), inboundMappingState.lastActivity);
}

void ActivateInboundMapping(uint32_t address) {
    if (address != 0 && address == inboundMappingState.publishedAddress && !inboundCallIsIdle()) {
        return;
    }
    ResetInboundMapping();
    inboundMappingState.publishedAddress = address;
}

void BeginInboundCall(uint32_t remoteAddress, uint16_t remotePort) {
    if (remoteAddress != inboundMappingState.remoteAddress && !inboundCallIsIdle()) {
        return;
    }
    const uint32_t publishedAddress = inboundMappingState.publishedAddress;
    ResetInboundMapping();
    inboundMappingState.publishedAddress = publishedAddress;
    inboundMappingState.lastActivity = wallClockSeconds();
    inboundMappingState.remoteAddress = remoteAddress;
    inboundMappingState.remoteSignallingPort = remotePort;
}

uint32_t AppendInboundSegment(StreamBuffer& buffer, const StreamSegment& segment,
                              const MessageProcessor& processor) {
    if (segment.length == 0) {
        return 0;
    }
    inboundMappingState.lastActivity = wallClockSeconds();
    if (placeSegment(buffer, segment, inboundBufferCapacity) != Placement::placed) {
        return 0;
    }
    processHeldMessages(buffer, segment.payload, processor);
    const uint32_t changed = buffer.messageChanged;
    buffer.messageChanged = 0;
    return changed;
}
