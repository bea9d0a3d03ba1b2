#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/live_mappings.h"
#include "gateway/message_log.h"
#include "include/h323nat.h"

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>

namespace gateway {

// A call, from its Setup on.
struct LiveCall {
    uint64_t number = 0;
    bool inbound = false;
    Endpoint inside;
    Endpoint remote;
    std::string identifier; // hexadecimal; empty: none
    std::string calling;    // aliases as UTF-8; empty: none
    std::string called;
    LiveSeconds started = 0;
    LiveSeconds connected = 0; // 0: not yet
    LiveSeconds ended = 0;     // 0: not yet
    uint32_t cause = 0;        // of release, Q.850; 0: none was told
    uint32_t end = 0;          // H323NAT_END_...
    uint32_t rewritten = 0;    // addresses
    std::string trouble;       // the first thing that was not translated; empty: all was

    // "translated", or "partly: ..."
    [[nodiscard]] std::string verdict() const;
};

// The calls that the module follows, and the last ones that ended.
class LiveCalls {
public:
    static constexpr size_t endedKept = 1000;

    LiveCall& begin(const H323ObservedCall& call, LiveSeconds now);

    // The call is moved to those that ended; null when it was not known.
    const LiveCall* end(const H323ObservedCall& call, LiveSeconds now);

    // What a message of a call tells of it.
    void note(const ReportedMessage& message, LiveSeconds now);

    // Running or ended; null when it is not known any more.
    [[nodiscard]] const LiveCall* find(uint64_t number) const;

    // Something of the call was not translated: "setup.h245Address: the host opened no mapping".
    void noteTrouble(uint64_t call, const std::string& what);

    [[nodiscard]] const std::unordered_map<uint64_t, LiveCall>& running() const { return running_; }
    [[nodiscard]] const std::deque<LiveCall>& ended() const { return ended_; } // oldest first

private:
    LiveCall* mutableCall(uint64_t number);

    std::unordered_map<uint64_t, LiveCall> running_;
    std::deque<LiveCall> ended_;
};

// How a call ended, in a word.
const char* endName(uint32_t end);

} // namespace gateway
