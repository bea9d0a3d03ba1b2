#include "gateway/live/live_calls.h"

#include "tree/value_text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {
namespace {

constexpr size_t missedKept = 100;
constexpr LiveSeconds sameCall = 60;
constexpr size_t mostConnections = 8;

LiveCall describe(const ReportedCall& told, LiveSeconds now) {
    LiveCall call;
    call.number = told.call;
    call.inbound = told.direction == H323NAT_RECEIVED;
    call.inside = told.inside;
    call.remote = told.outside;
    call.identifier = tree::hexText(told.callIdentifier);
    call.calling = told.callingAlias;
    call.called = told.calledAlias;
    call.started = now;
    call.connections = {{Protocol::Tcp, call.inside, call.remote}};
    return call;
}

void add(PacketCounts& sum, const PacketCounts& more) {
    sum.sent += more.sent;
    sum.received += more.received;
}

bool isAny(const PacketCounts& packets) {
    return packets.sent + packets.received > 0;
}

} // namespace

const char* endName(uint32_t end) {
    static constexpr std::array<const char*, 4> names = {"running", "released", "closed",
                                                         "forgotten"};
    return names.at(std::min<size_t>(end, names.size() - 1));
}

std::string LiveCall::verdict() const {
    if (number == 0) {
        return "not translated: " + trouble;
    }
    return trouble.empty() ? "translated" : "partly: " + trouble;
}

LiveCall& LiveCalls::begin(const ReportedCall& call, LiveSeconds now) {
    return running_[call.call] = describe(call, now);
}

LiveCall& LiveCalls::keep(LiveCall call) {
    if (ended_.size() == endedKept) {
        endedByNumber_.erase(ended_.front().number);
        ended_.pop_front();
    }
    LiveCall& kept = ended_.emplace_back(std::move(call));
    if (kept.number != 0) {
        endedByNumber_[kept.number] = &kept;
    }
    return kept;
}

const LiveCall* LiveCalls::end(uint64_t number, uint32_t end, uint32_t cause, LiveSeconds now) {
    const auto found = running_.find(number);
    if (found == running_.end()) {
        return nullptr;
    }
    LiveCall over = std::move(found->second);
    running_.erase(found);
    over.ended = now;
    over.cause = cause;
    over.end = end;
    return &keep(std::move(over));
}

// A Setup is sent again, and strangers send many: neither shall fill the list.
const LiveCall* LiveCalls::miss(const ReportedCall& call, const std::string& why, LiveSeconds now) {
    auto oldest = ended_.end();
    size_t missed = 0;
    for (auto each = ended_.begin(); each != ended_.end(); ++each) {
        if (each->number != 0) {
            continue;
        }
        if (each->inside == call.inside && each->remote == call.outside &&
            now - each->started <= sameCall) {
            return nullptr;
        }
        oldest = missed++ == 0 ? each : oldest;
    }
    if (missed >= missedKept) {
        ended_.erase(oldest);
    }
    LiveCall missing = describe(call, now);
    missing.number = 0;
    missing.ended = now;
    missing.trouble = why;
    missing.surveysSinceEnd = surveysAfterEnd;
    return &keep(std::move(missing));
}

std::vector<uint64_t> LiveCalls::closed(const FlowSurvey& survey) const {
    std::vector<uint64_t> numbers;
    for (const auto& [number, call] : running_) {
        const bool over =
            std::all_of(call.connections.begin(), call.connections.end(), [&](const FlowId& each) {
                return survey.owner(each) != nullptr && !survey.isOpen(each) &&
                       each.local.port != 0;
            });
        if (over) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

const LiveCall* LiveCalls::runningOn(const FlowId& connection) const {
    const auto found = std::find_if(running_.begin(), running_.end(), [&](const auto& entry) {
        return entry.second.connections.front() == connection;
    });
    return found == running_.end() ? nullptr : &found->second;
}

// A message that ends its call is reported when the call is over already.
const LiveCall* LiveCalls::find(uint64_t number) const {
    const auto found = running_.find(number);
    if (found != running_.end()) {
        return &found->second;
    }
    const auto ended = endedByNumber_.find(number);
    return ended == endedByNumber_.end() ? nullptr : ended->second;
}

LiveCall* LiveCalls::known(uint64_t number) {
    return const_cast<LiveCall*>(find(number));
}

void LiveCalls::note(const ReportedMessage& message, LiveSeconds now) {
    LiveCall* const call = known(message.call);
    if (call == nullptr) {
        return;
    }
    call->rewritten += static_cast<uint32_t>(message.rewritten.size());
    if (message.name == "connect" && call->connected == 0) {
        call->connected = now;
    }
    // Of a received one the private end is not known.
    const FlowId connection{Protocol::Tcp, message.inside, message.outside};
    if (message.direction == H323NAT_SENT && message.role == H323NAT_ROLE_H245 &&
        call->connections.size() < mostConnections &&
        std::find(call->connections.begin(), call->connections.end(), connection) ==
            call->connections.end()) {
        call->connections.push_back(connection);
    }
}

void LiveCalls::noteTrouble(uint64_t number, const std::string& what) {
    LiveCall* const call = known(number);
    if (call != nullptr && call->trouble.empty()) {
        call->trouble = what;
    }
}

template <typename Function> void LiveCalls::forEachCounted(Function function) {
    for (auto& [number, call] : running_) {
        function(call);
    }
    for (auto call = ended_.rbegin(); call != ended_.rend(); ++call) {
        if (call->number == 0) {
            continue;
        }
        if (call->surveysSinceEnd >= surveysAfterEnd) {
            break; // older ones as well
        }
        function(*call);
    }
}

void LiveCalls::ask(FlowSurvey& survey) {
    forEachCounted([&](const LiveCall& call) {
        for (const FlowId& connection : call.connections) {
            survey.add(connection);
        }
    });
}

void LiveCalls::countSignalling(const FlowSurvey& survey) {
    forEachCounted([&](LiveCall& call) {
        for (const FlowId& connection : call.connections) {
            const FlowSurvey::Owner* const owner = survey.owner(connection);
            if (owner != nullptr && isAny(owner->packets)) {
                call.counted = true;
                add(call.signalling, owner->more);
            }
        }
    });
}

const LiveCall* LiveCalls::countMedia(uint64_t number, std::span<const FlowSurvey::Flow> flows) {
    LiveCall* const call = known(number);
    if (call == nullptr || call->surveysSinceEnd >= surveysAfterEnd) {
        return nullptr;
    }
    for (const FlowSurvey::Flow& flow : flows) {
        add(call->media, flow.control ? PacketCounts{} : flow.more);
    }
    return call;
}

void LiveCalls::endSurvey() {
    forEachCounted([](LiveCall& call) { call.surveysSinceEnd += call.ended != 0 ? 1 : 0; });
}

} // namespace gateway
