#pragma once

#include "gateway/endpoint.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// H.323 messages as the reports show them. Decoding is lenient: a message by a later version with
// alternatives that our codecs do not know is read as far as they do.
namespace gateway {

enum class MessageKind {
    CallSignalling, // a Q.931 message in a TPKT (H.225.0 7)
    Control,        // an H.245 message in a TPKT
    Ras,            // a datagram
};

// An IPv4 address with port that the module may rewrite, and its place in the message:
//
//   setup.destCallSignalAddress               connect.h245Address
//   setup.fastStart[i].forward.mediaControlChannel
//   setup.fastStart[i].reverse.mediaChannel   setup.fastStart[i].reverse.mediaControlChannel
//   olcAck.mediaChannel                       olcAck.mediaControlChannel
//   olc.forward.mediaControlChannel           olc.separateStack, olcAck.separateStack
//   grq.rasAddress                            rrq.rasAddress[0], rrq.callSignalAddress[0]
struct AddressField {
    std::string path;
    Endpoint value;

    bool operator==(const AddressField&) const = default;
};

struct MessageDescription {
    bool decoded = false;
    std::string name; // of the message's alternative: "setup", "openLogicalChannelAck"
    std::vector<AddressField> fields;
    std::vector<Endpoint> controlAddresses; // h245Address of any call-signalling message
};

// `octets` is one whole message: from the TPKT header on, or a RAS datagram's payload. It is read
// only. A call-signalling message without user information counts as decoded, with the name
// "Q.931".
MessageDescription describeMessage(MessageKind kind, std::span<const uint8_t> octets);

} // namespace gateway
