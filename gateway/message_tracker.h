#pragma once

#include "gateway/endpoint.h"
#include "gateway/h323_message.h"
#include "gateway/reference_host.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace gateway {

// The payload of one packet before the module saw it and as it leaves the router; both have the
// same length.
struct ObservedPayload {
    Direction direction = Direction::Sent;
    FlowId insideView;
    uint32_t sequence = 0; // TCP only, as the flags
    uint8_t tcpFlags = 0;
    std::span<const uint8_t> before;
    std::span<const uint8_t> after;
};

struct AddressChange {
    std::string field;
    Endpoint from;
    Endpoint to;
};

// A whole H.323 message whose last octet came in the packet just observed.
struct ObservedMessage {
    MessageKind kind = MessageKind::CallSignalling;
    MessageDescription description; // as it was before
    bool rewritten = false;         // any octet of it changed
    std::vector<AddressChange> changes;
    bool repeated = false; // in a retransmitted segment: told only when it was rewritten
};

// Finds the H.323 messages in the traffic and what was changed in them, for reports; the module
// knows nothing of it. Call signalling is TCP port 1720, RAS UDP port 1719 and, for discovery,
// 1718; H.245 connections are known by the addresses that call signalling announced. Follows a
// bounded number of connections; the one longest idle is forgotten.
class MessageTracker {
public:
    // The messages that this packet completes. The result is valid until the next call.
    const std::vector<ObservedMessage>& observe(const ObservedPayload& payload);

    // True when the payload of such a packet may be or belong to an H.323 message. Callers need
    // no copy of other payloads.
    [[nodiscard]] bool mayCarryMessages(const FlowId& insideView) const;

private:
    struct StreamId {
        FlowId insideView;
        Direction direction = Direction::Sent;
        bool operator==(const StreamId&) const = default;
    };
    struct StreamIdHash {
        size_t operator()(const StreamId& id) const noexcept;
    };
    // Octets of one direction of a connection, held until their message is whole.
    struct Stream {
        StreamId id;
        bool started = false;
        uint32_t next = 0; // sequence number expected
        std::vector<uint8_t> before;
        std::vector<uint8_t> after;
    };

    Stream& streamOf(const StreamId& id);
    void observeSegment(MessageKind kind, const ObservedPayload& payload);
    void append(Stream& stream, MessageKind kind, const ObservedPayload& payload, size_t known);
    size_t takeMessages(MessageKind kind, std::span<const uint8_t> before,
                        std::span<const uint8_t> after, bool repeated);
    void addMessage(MessageKind kind, std::span<const uint8_t> before,
                    std::span<const uint8_t> after, bool repeated);
    void learnControlAddresses(const std::vector<Endpoint>& addresses);
    [[nodiscard]] bool isControl(const FlowId& insideView) const;

    std::vector<ObservedMessage> messages_;
    std::list<Stream> streams_; // longest idle first
    std::unordered_map<StreamId, std::list<Stream>::iterator, StreamIdHash> byId_;
    std::list<LocalId> controlOrder_; // oldest first
    std::unordered_map<LocalId, std::list<LocalId>::iterator, LocalIdHash> controlAddresses_;
};

} // namespace gateway
