#include "report/call_recorder.h"

#include "locator/locator.h"
#include "locator/path_names.h"
#include "report/findings.h"
#include "tree/value_text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace report {
namespace {

// Whether the message tells the endpoint that a mapping was asked for, or the RTCP port beside it.
bool tells(const gateway::ReportedMessage& message, const gateway::Endpoint& inside) {
    const auto isIt = [&](const gateway::ReportedAddress& address) {
        return address.from.address == inside.address &&
               (address.from.port | 1) == (inside.port | 1);
    };
    return std::any_of(message.rewritten.begin(), message.rewritten.end(), isIt) ||
           std::any_of(message.left.begin(), message.left.end(), isIt);
}

std::pair<uint64_t, uint64_t> connectionOf(const gateway::ReportedMessage& message) {
    return {FlowRuns::key(message.host), FlowRuns::key(message.outside)};
}

// The first alias of each side, as the Setup has them.
void noteAliases(CallRecord& record, const gateway::ReportedMessage& message) {
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, LocatedType::userInformation, message.octets.data(), message.octets.size(),
                  placeKindBit(PlaceKind::alias));
    while (nextPlace(walk, place)) {
        std::array<char, placePathCapacity> path{};
        placePath(walk, path.data(), path.size());
        const std::string name = path.data();
        const bool calling = name.find(".setup.sourceAddress[") != std::string::npos;
        const bool called = name.find(".setup.destinationAddress[") != std::string::npos;
        std::string& alias = calling ? record.callingAlias : record.calledAlias;
        if ((calling || called) && alias.empty()) {
            std::array<char, 512> text{};
            const size_t length =
                std::min(aliasCharacters(message.octets.data(), place, text.data(), text.size()),
                         text.size());
            alias = gateway::aliasText({text.data(), length});
        }
    }
}

void noteTimes(CallRecord& record, int64_t time, const gateway::ReportedMessage& message) {
    if (message.role != H323NAT_ROLE_SIGNALLING) {
        return;
    }
    if (record.outside.port == 0 || message.name == "setup") {
        record.host = message.host;
        record.outside = message.outside;
    }
    if (message.name == "setup") {
        record.outbound = message.direction == H323NAT_SENT;
        noteAliases(record, message);
    } else if (message.name == "connect" && record.connected == never) {
        record.connected = time;
    } else if (message.name == "releaseComplete") {
        record.ended = time;
    }
}

} // namespace

void CallRecorder::addCall(int64_t time, const gateway::ReportedCall& call) {
    if (calls_.size() >= settings_.mostMessages && !calls_.contains(call.call)) {
        return;
    }
    KnownCall& known = calls_[call.call];
    known.call = call;
    known.ended = call.ended ? time : never;
}

void CallRecorder::addMapping(int64_t time, const gateway::MappingRequest& request) {
    // Some are for messages that tell no address any more, and wait in vain.
    constexpr size_t mostWaiting = 4096;
    if (waitingMappings_.size() == mostWaiting) {
        waitingMappings_.pop_front();
    }
    waitingMappings_.push_back({time, request});
}

size_t CallRecorder::recordOfCall(const gateway::ReportedMessage& message) {
    const auto byCall = byCall_.find(message.call);
    if (message.call != 0 && byCall != byCall_.end()) {
        return byCall->second;
    }
    const auto byIdentifier = byIdentifier_.find(message.callIdentifier);
    if (byIdentifier != byIdentifier_.end()) {
        return byIdentifier->second;
    }
    records_.emplace_back();
    return records_.size() - 1;
}

size_t CallRecorder::recordOfParties(const gateway::ReportedMessage& message) {
    const Parties parties{message.host.address, message.outside.address};
    if (message.role == H323NAT_ROLE_RAS) {
        const auto last = lastRas_.find(parties);
        if (last != lastRas_.end() && last->second.direction != message.direction) {
            return last->second.record;
        }
    }
    // What comes after a call's end has no number any more.
    const auto connection = byConnection_.find(connectionOf(message));
    if (message.role != H323NAT_ROLE_RAS && connection != byConnection_.end()) {
        return connection->second;
    }
    const auto [found, isNew] = byParties_.try_emplace(parties, records_.size());
    if (isNew) {
        records_.emplace_back();
    }
    return found->second;
}

size_t CallRecorder::recordOf(const gateway::ReportedMessage& message) {
    const bool isOfCall = message.call != 0 || !message.callIdentifier.empty();
    const size_t number = isOfCall ? recordOfCall(message) : recordOfParties(message);
    CallRecord& record = records_[number];
    record.isCall = record.isCall || isOfCall || message.role == H323NAT_ROLE_SIGNALLING;
    if (!message.callIdentifier.empty()) {
        record.callIdentifier = tree::hexText(message.callIdentifier);
    }
    remember(message, number);
    return number;
}

void CallRecorder::remember(const gateway::ReportedMessage& message, size_t number) {
    if (message.call != 0) {
        byCall_.emplace(message.call, number);
    }
    if (!message.callIdentifier.empty()) {
        byIdentifier_.emplace(message.callIdentifier, number);
    }
    if (message.role == H323NAT_ROLE_RAS) {
        lastRas_[{message.host.address, message.outside.address}] = {number, message.direction};
    } else {
        byConnection_[connectionOf(message)] = number;
    }
}

void CallRecorder::placeMappings(CallRecord& record, const gateway::ReportedMessage& message) {
    const auto isOfMessage = [&](const MappingRecord& mapping) {
        return tells(message, mapping.request.inside);
    };
    for (const MappingRecord& mapping : waitingMappings_) {
        if (!isOfMessage(mapping)) {
            continue;
        }
        const bool known = std::any_of(
            record.mappings.begin(), record.mappings.end(), [&](const MappingRecord& other) {
                return other.request.inside == mapping.request.inside &&
                       other.request.publicEndpoint == mapping.request.publicEndpoint;
            });
        if (!known) {
            record.mappings.push_back(mapping);
        }
    }
    std::erase_if(waitingMappings_, isOfMessage);
}

void CallRecorder::addMessage(int64_t time, uint64_t frame, const gateway::ReportedMessage& message,
                              const std::vector<gateway::ReportedAddress>& remaining) {
    if (kept_ >= settings_.mostMessages) {
        ++notKept_;
        return;
    }
    ++kept_;
    if (message.name == "setup" || message.name == "releaseComplete") {
        flows_.split(message.host.address);
        flows_.split(message.outside.address);
    }
    CallRecord& record = records_[recordOf(message)];
    placeMappings(record, message);
    if (record.messages.empty()) {
        record.start = time;
        record.host = message.host;
        record.outside = {message.outside.address, 0};
    }
    noteTimes(record, time, message);
    record.messages.push_back({time, frame, message, remaining});
}

void CallRecorder::addPacket(int64_t time, const gateway::PacketOutcome& outcome) {
    flows_.add(time, outcome);
}

void CallRecorder::complete(CallRecord& record, const KnownCall& known) const {
    if (record.callingAlias.empty()) {
        record.callingAlias = known.call.callingAlias;
    }
    if (record.calledAlias.empty()) {
        record.calledAlias = known.call.calledAlias;
    }
    record.cause = known.call.cause == 0 ? record.cause : known.call.cause;
    record.ended = record.ended == never ? known.ended : record.ended;
}

std::vector<CallRecord> CallRecorder::finish() {
    for (const auto& [call, number] : byCall_) {
        const auto known = calls_.find(call);
        if (known != calls_.end()) {
            complete(records_[number], known->second);
        }
    }
    for (CallRecord& record : records_) {
        record.streams = mediaStreams(record, settings_.inside, flows_);
        judge(record, settings_.inside);
    }
    std::vector<CallRecord> records = std::exchange(records_, {});
    *this = CallRecorder(settings_);
    return records;
}

} // namespace report
