#pragma once

#include "report/call_record.h"
#include "report/flow_runs.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace report {

struct ArchiveSettings {
    std::string calls;    // folder for the records of calls; empty: none are kept
    std::string troubled; // folder for captures of calls that were not all translated; empty: none
    size_t mostCalls = 100;               // files in each folder; the oldest make room
    size_t mostMessages = 1000;           // of one call
    size_t mostOctets = size_t{16} << 20; // of messages and packets of running calls together

    [[nodiscard]] bool keeps() const { return !calls.empty() || !troubled.empty(); }
    bool operator==(const ArchiveSettings&) const = default;
};

// What was said in the calls of a running gateway, for whoever asks later: a JSON file for each of
// the last calls, NUMBER.json, and a pcapng file for each that was not all translated. Files of
// earlier runs make room first. Everything is bounded; what is too much is left out.
class CallArchive {
public:
    // Takes effect for what comes.
    void configure(const ArchiveSettings& settings);
    [[nodiscard]] bool keeps() const { return settings_.keeps(); }

    // A message of a call, and the IPv4 packet that brought it, as it came.
    void note(uint64_t call, const LadderMessage& message, std::span<const uint8_t> packet);
    void note(uint64_t call, const MappingRecord& mapping);
    // Packets of its media, as the private host has them, since they were noted last.
    void note(uint64_t call, const gateway::FlowId& flow, const PacketRun& sent,
              const PacketRun& received);

    // The call's file shall tell how far it is, if something happened since it last did; and the
    // call is over. `known` has parties, times and verdict. Both give an empty text, or what went
    // wrong.
    std::string update(uint64_t call, const CallRecord& known, const gateway::Network& inside);
    std::string end(uint64_t call, const CallRecord& known, const gateway::Network& inside);

private:
    static constexpr size_t mostFlows = 100; // of a call

    struct Packet {
        int64_t time = never;
        std::vector<uint8_t> octets;
        std::string comment;
    };
    struct Running {
        std::vector<LadderMessage> messages;
        std::vector<MappingRecord> mappings;
        std::vector<Packet> packets;
        FlowRuns flows{mostFlows};
        size_t octets = 0;
        bool changed = true;
    };

    Running* runningCall(uint64_t call, size_t octets);
    static void refineTimes(CallRecord& record);
    [[nodiscard]] CallRecord complete(const Running& running, CallRecord known,
                                      const gateway::Network& inside) const;
    [[nodiscard]] std::string write(uint64_t call, const CallRecord& record) const;
    [[nodiscard]] std::string writeCapture(uint64_t call, const Running& running,
                                           const CallRecord& record) const;

    ArchiveSettings settings_;
    std::map<uint64_t, Running> running_;
    size_t octets_ = 0;
};

// The folder of records of the gateway whose status socket this is.
std::string archiveBeside(const std::string& statusSocket);

// The record of a call that a gateway keeps in `folder`. Throws std::runtime_error when there is
// none, or it cannot be read.
CallRecord archivedCall(const std::string& folder, uint64_t call);

} // namespace report
