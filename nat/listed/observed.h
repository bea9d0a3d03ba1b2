// What the listed translations tell the host's observer. Costs a test of a pointer when there is
// none, and changes nothing that the translators do.
#pragma once

#include "nat/flow_key.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/message_edit.h"

// The packet that the translators are about to see: which way it goes, and its ends.
void observePacket(uint32_t direction, const FlowKey& flow);

// The call whose messages the packet carries; 0: of none.
void observeCallNumber(uint64_t call);

// A message was opened: tells of it before it changes. `decoded`: the codec could read it.
void observeRead(const MessageEdit& edit, bool decoded);

// It is about to be closed: tells what was rewritten and what was left.
void observeDone(const MessageEdit& edit);

// An outbound call's connection is followed, or not any more; `end` is H323NAT_END_....
void observeBegin(CallSignalConnection& call);
void observeEnd(const CallSignalConnection& call, uint32_t end);

// The same for the inbound call, from inboundMappingState. Does nothing when there is none.
void observeInboundBegin();
void observeInboundEnd(uint32_t end);

// The published host's H.245 endpoint, from inboundMappingState, and what stands for it outside.
void observeInboundControl(const EndpointKey& publicEndpoint);

// The H.245 endpoint of an outbound call's outside party.
void observeControl(const ControlChannelConnection& control, bool over);
