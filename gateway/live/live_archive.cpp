#include "gateway/live/live_archive.h"

#include <algorithm>
#include <chrono>

namespace gateway {
namespace {

constexpr int64_t second = 1'000'000'000;
constexpr size_t mostOver = 10'000;

// Call times are whole seconds of a clock that never steps back.
int64_t wallTime(LiveSeconds time) {
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::steady_clock::now().time_since_epoch())
                         .count();
    return LiveArchive::wallClock() - now + time * second;
}

report::CallRecord recordOf(const LiveCall& call) {
    report::CallRecord record;
    record.isCall = true;
    record.callIdentifier = call.identifier;
    record.callingAlias = call.calling;
    record.calledAlias = call.called;
    record.outbound = !call.inbound;
    record.host = call.inside;
    record.outside = call.remote;
    record.start = wallTime(call.started);
    record.connected = call.connected == 0 ? report::never : wallTime(call.connected);
    record.ended = call.ended == 0 ? report::never : wallTime(call.ended);
    record.cause = call.cause;
    record.verdict = call.verdict();
    record.counted = call.counted;
    return record;
}

} // namespace

int64_t LiveArchive::wallClock() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void LiveArchive::configure(const LiveConfig& config) {
    report::ArchiveSettings settings;
    if (config.keepCalls > 0) {
        settings.calls = report::archiveBeside(config.statusSocket);
        settings.mostCalls = config.keepCalls;
    }
    settings.troubled = config.captureTroubled;
    archive_.configure(settings);
}

void LiveArchive::notePacket(std::span<const uint8_t> packet) {
    if (keeps()) {
        packet_.assign(packet.begin(), packet.end());
    }
}

void LiveArchive::noteMapping(uint64_t call, const report::MappingRecord& mapping) {
    archive_.note(call, mapping);
}

void LiveArchive::noteMessage(const ReportedMessage& message,
                              const std::vector<ReportedAddress>& remaining, const LiveCall* call) {
    if (!keeps() || call == nullptr) {
        return;
    }
    report::LadderMessage kept{wallClock(), 0, message, remaining};
    kept.content.host = message.direction == H323NAT_SENT ? message.inside : call->inside;
    // A packet with several messages is kept once.
    archive_.note(message.call, kept, packet_);
    packet_.clear();
}

void LiveArchive::check(const std::string& failure) {
    if (!failure.empty()) {
        log_.warning("call-record", {{"failure", failure}});
    }
}

void LiveArchive::notePackets(const LiveCall& call, const FlowId& flow, const PacketCounts& more) {
    if (!keeps()) {
        return;
    }
    const int64_t now = wallClock();
    int64_t first = std::max(lastSurvey_, wallTime(call.started));
    if (call.ended != 0) {
        first = std::min(first, wallTime(call.ended));
    }
    const auto run = [&](uint64_t packets) {
        return packets == 0 ? report::PacketRun{} : report::PacketRun{packets, first, now};
    };
    archive_.note(call.number, flow, run(more.sent), run(more.received));
}

void LiveArchive::finish(const Over& over) {
    check(archive_.end(over.number, over.record, {over.record.host.address, 32}));
}

void LiveArchive::end(const LiveCall& call) {
    if (!keeps()) {
        return;
    }
    check(archive_.update(call.number, recordOf(call), {call.inside.address, 32}));
    if (over_.size() >= mostOver) {
        finish(over_.front());
        over_.pop_front();
    }
    over_.push_back({call.number, recordOf(call), 0});
}

void LiveArchive::endSurvey(const LiveCalls& calls) {
    if (!keeps()) {
        over_.clear();
        return;
    }
    lastSurvey_ = wallClock();
    for (const auto& [number, call] : calls.running()) {
        check(archive_.update(number, recordOf(call), {call.inside.address, 32}));
    }
    for (Over& over : over_) {
        ++over.surveys;
        if (const LiveCall* const call = calls.find(over.number)) {
            over.record = recordOf(*call);
        }
    }
    while (!over_.empty() && over_.front().surveys >= LiveCalls::surveysAfterEnd) {
        finish(over_.front());
        over_.pop_front();
    }
}

} // namespace gateway
