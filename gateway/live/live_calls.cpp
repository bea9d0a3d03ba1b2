#include "gateway/live/live_calls.h"

#include <algorithm>
#include <array>

namespace gateway {
namespace {

Endpoint endpointOf(const H323Endpoint& endpoint) {
    return {endpoint.address, endpoint.port};
}

std::string hexadecimal(const H323Octets& octets) {
    static constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (uint32_t i = 0; i < octets.length; ++i) {
        text += digits[octets.data[i] >> 4];
        text += digits[octets.data[i] & 15];
    }
    return text;
}

void appendUtf8(std::string& text, unsigned character) {
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += static_cast<char>(0x80 | (character & 0x3F));
    } else {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (character & 0x3F));
    }
}

// Digits stand one an octet, names in UTF-16. What could confuse a terminal becomes '?'.
std::string aliasText(const H323Octets& alias) {
    const bool wide = alias.length >= 2 && alias.length % 2 == 0 && alias.data[0] < ' ';
    std::string text;
    for (uint32_t i = 0; i + (wide ? 1 : 0) < alias.length; i += wide ? 2 : 1) {
        const unsigned character =
            wide ? static_cast<unsigned>(alias.data[i]) << 8 | alias.data[i + 1] : alias.data[i];
        const bool shown = character >= ' ' && character != 0x7F &&
                           (character < 0x80 || (wide && character >= 0xA0)) &&
                           (character < 0xD800 || character > 0xDFFF);
        appendUtf8(text, shown ? character : '?');
    }
    return text;
}

void describe(LiveCall& call, const H323ObservedCall& told) {
    call.number = told.call;
    call.inbound = told.direction == H323NAT_RECEIVED;
    call.inside = endpointOf(told.inside);
    call.remote = endpointOf(told.outside);
    call.identifier = hexadecimal(told.callIdentifier);
    call.calling = aliasText(told.callingAlias);
    call.called = aliasText(told.calledAlias);
}

} // namespace

const char* endName(uint32_t end) {
    static constexpr std::array<const char*, 4> names = {"running", "released", "closed",
                                                         "forgotten"};
    return names.at(std::min<size_t>(end, names.size() - 1));
}

std::string LiveCall::verdict() const {
    return trouble.empty() ? "translated" : "partly: " + trouble;
}

LiveCall& LiveCalls::begin(const H323ObservedCall& call, LiveSeconds now) {
    LiveCall& begun = running_[call.call];
    describe(begun, call);
    begun.started = now;
    return begun;
}

const LiveCall* LiveCalls::end(const H323ObservedCall& call, LiveSeconds now) {
    const auto found = running_.find(call.call);
    if (found == running_.end()) {
        return nullptr;
    }
    found->second.ended = now;
    found->second.cause = call.cause;
    found->second.end = call.end;
    if (ended_.size() == endedKept) {
        ended_.pop_front();
    }
    ended_.push_back(std::move(found->second));
    running_.erase(found);
    return &ended_.back();
}

// A message that ends its call is reported when the call is over already.
const LiveCall* LiveCalls::find(uint64_t number) const {
    const auto found = running_.find(number);
    if (found != running_.end()) {
        return &found->second;
    }
    const auto ended = std::find_if(ended_.rbegin(), ended_.rend(),
                                    [&](const LiveCall& call) { return call.number == number; });
    return number == 0 || ended == ended_.rend() ? nullptr : &*ended;
}

LiveCall* LiveCalls::mutableCall(uint64_t number) {
    return const_cast<LiveCall*>(find(number));
}

void LiveCalls::note(const ReportedMessage& message, LiveSeconds now) {
    LiveCall* const call = message.call == 0 ? nullptr : mutableCall(message.call);
    if (call != nullptr) {
        call->rewritten += static_cast<uint32_t>(message.rewritten.size());
        if (message.name == "connect" && call->connected == 0) {
            call->connected = now;
        }
    }
}

void LiveCalls::noteTrouble(uint64_t number, const std::string& what) {
    LiveCall* const call = number == 0 ? nullptr : mutableCall(number);
    if (call != nullptr && call->trouble.empty()) {
        call->trouble = what;
    }
}

} // namespace gateway
