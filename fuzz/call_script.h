// The input of the hook target: packets of a few parties, waiting, and what the host answers.
//
// Every step has the same head of 12 octets, so that a mutation of one octet changes one property
// and the steps behind it stay. Payloads come framed: a message's PER octets can be mutated alone
// while TPKT and Q.931 lengths around them are right, or wrong by a chosen amount.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/input.h"

namespace fuzzing {

enum class StepKind : uint8_t {
    TcpSent,
    TcpReceived,
    UdpSent,
    UdpReceived,
    RawSent,     // the payload is the transport header and what follows
    RawReceived, // the payload is the IP header and what follows
    Wait,        // localPort seconds; 0xFFFF sets the clock back
    Publish,     // the private party; none when bit 7 of parties is set
    Settings,    // flags are HostSetting bits
};
constexpr uint8_t stepKinds = 9;

enum HostSetting : uint8_t {
    settingLossless = 0x01,      // rewrite mode 1
    settingSkipLinking = 0x02,   // the host asks not to link media records
    settingSilentMedia = 0x04,   // media mappings leave the out values alone
    settingRefuseControl = 0x08, // control mappings are refused
    settingUnknownFlows = 0x10,  // the host has no record of any flow
    settingLastPort = 0x20,      // media mappings answer port 65535
    settingMemoryShort = 0x40,   // localPort allocations succeed, then none
};

enum class Framing : uint8_t {
    None,
    Tpkt,            // lie: added to the TPKT length
    UserInformation, // TPKT, Q.931 with a User-user element; lie: added to the element's length
    LyingTpkt,       // as UserInformation; lie: added to the TPKT length
};

struct Step {
    StepKind kind = StepKind::TcpSent;
    uint8_t parties = 0;     // bit 0: private party, bits 1 and 2: outside party
    uint16_t localPort = 0;  // 0: the published host's H.245 port
    uint16_t remotePort = 0; // 0: the H.245 port that was announced last
    uint8_t flags = 0x10;    // of TCP
    int8_t shift = 0;        // of the sequence number, from the next expected one
    Framing framing = Framing::None;
    int8_t lie = 0;
    uint8_t cut = 0; // 0: one segment; else segments of this many octets
    Octets payload;
};

std::vector<Step> parseScript(const uint8_t* data, size_t size);

/// The inverse of parseScript.
Octets formatScript(std::span<const Step> steps);

/// The step's payload in its frame.
Octets framedPayload(const Step& step);

} // namespace fuzzing
