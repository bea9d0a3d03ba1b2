#include "gateway/message_tracker.h"

#include "gateway/q931.h"

#include <algorithm>
#include <optional>

namespace gateway {
namespace {

constexpr uint16_t callSignalPort = 1720;
constexpr uint16_t rasPort = 1719;
constexpr uint16_t rasDiscoveryPort = 1718;

// An attacker can make us hold this much for each connection, and no more.
constexpr size_t maxHeldOctets = 16384;
constexpr size_t maxStreams = 1024;
constexpr size_t maxControlAddresses = 4096;

bool hasPort(const FlowId& view, uint16_t port) {
    return view.local.port == port || view.remote.port == port;
}

bool isRas(const FlowId& view) {
    return view.protocol == Protocol::Udp &&
           (hasPort(view, rasPort) || hasPort(view, rasDiscoveryPort));
}

// Length of the TPKT at the start; nullopt when no TPKT stands there. 0 when it is not known yet.
std::optional<size_t> tpktLength(std::span<const uint8_t> octets) {
    constexpr uint8_t version = 3;
    if (!octets.empty() && octets[0] != version) {
        return std::nullopt;
    }
    if (octets.size() < tpktHeader) {
        return 0;
    }
    const size_t length = static_cast<size_t>(octets[2]) * 256 + octets[3];
    return length < tpktHeader || length > maxHeldOctets ? std::nullopt : std::optional(length);
}

std::vector<AddressChange> changesBetween(const MessageDescription& before,
                                          const MessageDescription& after) {
    std::vector<AddressChange> changes;
    for (const AddressField& field : before.fields) {
        const auto match = std::find_if(after.fields.begin(), after.fields.end(),
                                        [&](const auto& f) { return f.path == field.path; });
        if (match != after.fields.end() && match->value != field.value) {
            changes.push_back({field.path, field.value, match->value});
        }
    }
    return changes;
}

} // namespace

size_t MessageTracker::StreamIdHash::operator()(const StreamId& id) const noexcept {
    return FlowIdHash{}(id.insideView) ^ static_cast<size_t>(id.direction);
}

bool MessageTracker::mayCarryMessages(const FlowId& insideView) const {
    if (insideView.protocol == Protocol::Udp) {
        return isRas(insideView);
    }
    return hasPort(insideView, callSignalPort) || isControl(insideView);
}

bool MessageTracker::isControl(const FlowId& insideView) const {
    return controlAddresses_.contains({Protocol::Tcp, insideView.local}) ||
           controlAddresses_.contains({Protocol::Tcp, insideView.remote});
}

const std::vector<ObservedMessage>& MessageTracker::observe(const ObservedPayload& payload) {
    messages_.clear();
    const FlowId& view = payload.insideView;
    if (isRas(view)) {
        if (!payload.before.empty()) {
            addMessage(MessageKind::Ras, payload.before, payload.after, false);
        }
    } else if (view.protocol == Protocol::Tcp && hasPort(view, callSignalPort)) {
        observeSegment(MessageKind::CallSignalling, payload);
    } else if (view.protocol == Protocol::Tcp && isControl(view)) {
        observeSegment(MessageKind::Control, payload);
    }
    return messages_;
}

void MessageTracker::observeSegment(MessageKind kind, const ObservedPayload& payload) {
    Stream& stream = streamOf({payload.insideView, payload.direction});
    if ((payload.tcpFlags & tcpSyn) != 0) {
        stream.before.clear();
        stream.after.clear();
        stream.next = payload.sequence + 1;
        stream.started = true;
        return;
    }
    if (payload.before.empty()) {
        return;
    }
    const auto ahead = static_cast<int32_t>(payload.sequence - stream.next);
    if (!stream.started || ahead > 0) {
        // The capture starts here, or lacks a segment: a new message may start with this one.
        stream.before.clear();
        stream.after.clear();
        stream.next = payload.sequence;
        stream.started = true;
        append(stream, kind, payload, 0);
        return;
    }
    const size_t known = static_cast<uint32_t>(stream.next - payload.sequence);
    if (known < payload.before.size()) {
        append(stream, kind, payload, known);
    } else if (!std::equal(payload.before.begin(), payload.before.end(), payload.after.begin())) {
        takeMessages(kind, payload.before, payload.after, true);
    }
}

// Adds the octets of a segment behind the first `known` ones, and takes out what is whole.
void MessageTracker::append(Stream& stream, MessageKind kind, const ObservedPayload& payload,
                            size_t known) {
    const auto skip = static_cast<std::ptrdiff_t>(known);
    stream.before.insert(stream.before.end(), payload.before.begin() + skip, payload.before.end());
    stream.after.insert(stream.after.end(), payload.after.begin() + skip, payload.after.end());
    stream.next = payload.sequence + static_cast<uint32_t>(payload.before.size());

    const auto taken =
        static_cast<std::ptrdiff_t>(takeMessages(kind, stream.before, stream.after, false));
    stream.before.erase(stream.before.begin(), stream.before.begin() + taken);
    stream.after.erase(stream.after.begin(), stream.after.begin() + taken);
}

// Takes whole messages from the start of the octets; answers how many octets are done with. What
// is no TPKT is done with as a whole.
size_t MessageTracker::takeMessages(MessageKind kind, std::span<const uint8_t> before,
                                    std::span<const uint8_t> after, bool repeated) {
    size_t at = 0;
    while (at < before.size()) {
        const auto length = tpktLength(before.subspan(at));
        if (!length) {
            return before.size();
        }
        if (*length == 0 || *length > before.size() - at) {
            break;
        }
        addMessage(kind, before.subspan(at, *length), after.subspan(at, *length), repeated);
        at += *length;
    }
    return at;
}

void MessageTracker::addMessage(MessageKind kind, std::span<const uint8_t> before,
                                std::span<const uint8_t> after, bool repeated) {
    const bool rewritten = !std::equal(before.begin(), before.end(), after.begin());
    if (repeated && !rewritten) {
        return;
    }
    ObservedMessage& message = messages_.emplace_back();
    message.kind = kind;
    message.description = describeMessage(kind, before);
    message.repeated = repeated;
    message.rewritten = rewritten;
    if (rewritten) {
        message.changes = changesBetween(message.description, describeMessage(kind, after));
    }
    learnControlAddresses(message.description.controlAddresses);
}

void MessageTracker::learnControlAddresses(const std::vector<Endpoint>& addresses) {
    for (const Endpoint& address : addresses) {
        const LocalId id{Protocol::Tcp, address};
        if (controlAddresses_.contains(id)) {
            continue;
        }
        controlAddresses_.emplace(id, controlOrder_.insert(controlOrder_.end(), id));
        if (controlOrder_.size() > maxControlAddresses) {
            controlAddresses_.erase(controlOrder_.front());
            controlOrder_.pop_front();
        }
    }
}

MessageTracker::Stream& MessageTracker::streamOf(const StreamId& id) {
    if (const auto found = byId_.find(id); found != byId_.end()) {
        streams_.splice(streams_.end(), streams_, found->second);
        return *found->second;
    }
    if (streams_.size() == maxStreams) {
        byId_.erase(streams_.front().id);
        streams_.pop_front();
    }
    Stream& stream = streams_.emplace_back();
    stream.id = id;
    byId_.emplace(id, std::prev(streams_.end()));
    return stream;
}

} // namespace gateway
