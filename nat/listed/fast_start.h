// Fast-start proposals of outbound calls: the OpenLogicalChannel elements that a private caller
// puts into its Setup.
#pragma once

#include "H.323/H323-MESSAGES.h"
#include "include/h323nat.h"
#include "nat/listed/media_mapping.h"
#include "nat/listed/message_edit.h"

// Asks the host for a mapping of every address at which the caller wants to receive, and sets the
// public addresses in the elements. `setup` is the message that holds them.
//
// An element that does not decode, a proposal that does not name IPv4 addresses over RTP, and a
// proposal whose RTCP port would lie above 65535 stay as they are; the others are still handled.
// `mapping` carries the host's last answer from one call to the next.
void translateFastStart(HostContext* hostContext, MessageEdit& setup,
                        H225Setup_UUIE_fastStart& fastStart, MediaMapping& mapping);
