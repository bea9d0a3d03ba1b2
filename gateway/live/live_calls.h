#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/flow_survey.h"
#include "gateway/live/live_mappings.h"
#include "gateway/message_log.h"
#include "include/h323nat.h"

#include <cstdint>
#include <list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace gateway {

// A call, from its Setup on.
struct LiveCall {
    uint64_t number = 0; // 0: the module does not follow it
    bool inbound = false;
    Endpoint inside;
    Endpoint remote;
    std::string identifier; // hexadecimal; empty: none
    std::string calling;    // aliases as UTF-8; empty: none
    std::string called;
    LiveSeconds started = 0;
    LiveSeconds connected = 0;       // 0: not yet
    LiveSeconds ended = 0;           // 0: not yet
    uint32_t cause = 0;              // of release, Q.850; 0: none was told
    uint32_t end = 0;                // H323NAT_END_...
    uint32_t rewritten = 0;          // addresses
    std::string trouble;             // the first thing that was not translated; empty: all was
    std::vector<FlowId> connections; // signalling and H.245, inside view
    bool counted = false;            // the kernel counts its packets
    PacketCounts signalling;
    PacketCounts media; // RTP
    int surveysSinceEnd = 0;

    // "translated", or "partly: ...", or "not translated: ..."
    [[nodiscard]] std::string verdict() const;
};

// The calls that the module follows, and the last ones that ended.
class LiveCalls {
public:
    static constexpr size_t endedKept = 1000;
    // A survey that runs when a call ends may have seen its connections before.
    static constexpr int surveysAfterEnd = 2;

    LiveCall& begin(const ReportedCall& call, LiveSeconds now);

    // The call is moved to those that ended; null when it was not known.
    const LiveCall* end(uint64_t number, uint32_t end, uint32_t cause, LiveSeconds now);

    // A call that the module does not follow stands among those that ended; null when it does so
    // already.
    const LiveCall* miss(const ReportedCall& call, const std::string& why, LiveSeconds now);

    // Running calls whose connections a survey has looked for and found closed.
    [[nodiscard]] std::vector<uint64_t> closed(const FlowSurvey& survey) const;
    [[nodiscard]] const LiveCall* runningOn(const FlowId& connection) const;

    // What a message of a call tells of it.
    void note(const ReportedMessage& message, LiveSeconds now);

    // Running or ended; null when it is not known any more.
    [[nodiscard]] const LiveCall* find(uint64_t number) const;

    // Something of the call was not translated: "setup.h245Address: the host opened no mapping".
    void noteTrouble(uint64_t call, const std::string& what);

    // Packets are counted while a call runs, and until a survey that began after its end: what a
    // survey has to look for, what it has found, and its end.
    void ask(FlowSurvey& survey);
    void countSignalling(const FlowSurvey& survey);
    // The call; null when it is not counted any more.
    const LiveCall* countMedia(uint64_t call, std::span<const FlowSurvey::Flow> flows);
    void endSurvey();

    [[nodiscard]] const std::unordered_map<uint64_t, LiveCall>& running() const { return running_; }
    [[nodiscard]] const std::list<LiveCall>& ended() const { return ended_; } // oldest first

private:
    LiveCall* known(uint64_t number);
    LiveCall& keep(LiveCall call);
    template <typename Function> void forEachCounted(Function function);

    std::unordered_map<uint64_t, LiveCall> running_;
    std::list<LiveCall> ended_;
    std::unordered_map<uint64_t, LiveCall*> endedByNumber_;
};

// How a call ended, in a word.
const char* endName(uint32_t end);

} // namespace gateway
