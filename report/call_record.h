#pragma once

#include "gateway/endpoint.h"
#include "gateway/message_log.h"
#include "gateway/reference_host.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What is known of a call, for pages and records. Times are nanoseconds since 1970-01-01 00:00:00
// UTC; -1 is never.
namespace report {

constexpr int64_t never = -1;

struct LadderMessage {
    int64_t time = never;
    uint64_t frame = 0; // of the capture; 0: of none
    gateway::ReportedMessage content;
    std::vector<gateway::ReportedAddress> remaining; // private addresses that it told outside
};

struct MappingRecord {
    int64_t time = never;
    gateway::MappingRequest request;
};

// Packets of one direction.
struct PacketRun {
    uint64_t packets = 0;
    int64_t first = never;
    int64_t last = never;

    void add(int64_t time);
    void add(const PacketRun& other);
};

enum class StreamState : uint8_t {
    BothWays,
    SentOnly,
    ReceivedOnly,
    Void,      // what comes from outside does not arrive
    Silent,    // no packet
    Uncounted, // nobody counted its packets
};

// Media of one private endpoint: what was said of it and what flowed.
struct MediaStream {
    bool control = false; // RTCP
    gateway::Endpoint inside;
    gateway::Endpoint told;   // where the outside was told to send; port 0: nowhere
    gateway::Endpoint remote; // port 0: nobody sent or was sent to
    size_t teller = SIZE_MAX; // message that told `told`
    uint32_t leftCause = 0;   // H323NAT_LEFT_... when it told the private address
    PacketRun sent;
    PacketRun received;
    PacketRun lost; // from outside, met no mapping
    StreamState state = StreamState::Silent;
};

enum class Severity : uint8_t { Note, Trouble };

struct Finding {
    Severity severity = Severity::Note;
    std::string text; // whole sentences
    size_t message = SIZE_MAX;
};

struct CallRecord {
    bool isCall = false;        // otherwise messages that belong to none, between two parties
    std::string callIdentifier; // hexadecimal, or none
    std::string callingAlias;
    std::string calledAlias;
    bool outbound = true; // the private host calls
    gateway::Endpoint host;
    gateway::Endpoint outside;
    int64_t start = never;
    int64_t connected = never;
    int64_t ended = never;
    uint32_t cause = 0; // of Q.850
    std::vector<LadderMessage> messages;
    std::vector<MappingRecord> mappings;
    bool counted = true; // packets of its media
    std::vector<MediaStream> streams;
    std::vector<Finding> findings;
    std::string verdict; // "translated", or what is wrong in few words
};

} // namespace report
