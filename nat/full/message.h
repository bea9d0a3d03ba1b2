// One message: find its addresses, tell their roles, translate each by the rule of its direction,
// write it in place.
//
// Sent: an address that is the sender's own becomes what the host gives for it. Received: a public
// endpoint that the host gave becomes the private one again. Everything else stays.
#pragma once

#include "locator/locator.h"
#include "nat/full/endpoints.h"

namespace full_scope {

// Where a message comes from and where its octets can be written.
struct MessageSource {
    LocatedType type;
    uint32_t role;      // H323NAT_ROLE_SIGNALLING, _H245 or _RAS
    uint32_t direction; // H323NAT_SENT or H323NAT_RECEIVED
    EndpointKey inside; // as the packet names them
    EndpointKey outside;
    uint32_t privateAddress; // of the private host; 0: not known
    HostContext* hostContext;
    Index connection; // none: RAS
    Index registration;
    bool mayAnnounce;          // a received message may tell private hosts where to connect
    const FlowKey* control;    // of an H.245 connection: private end first; or null
    const StreamMessage* part; // the TPKT packet that holds it; null: it came in a datagram
    size_t offset;             // of the message in `part`
    uint8_t* octets;           // of the message; written only when `part` is null
    size_t count;
    uint32_t causeOfRelease; // Q.850 cause of a ReleaseComplete; 0: none
};

// What was found.
struct ReadMessage {
    uint16_t body; // alternative of its outermost CHOICE, locatorAlternative::...; 0: none
    bool changed;
};

ReadMessage translateMessage(const MessageSource& source);

} // namespace full_scope
