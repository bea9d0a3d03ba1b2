#pragma once

#include "gateway/endpoint.h"
#include "gateway/module_session.h"
#include "locator/locator.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace gateway {

// An address of a message, and what became of it.
struct ReportedAddress {
    std::string path; // names as in the modules, list elements by number
    uint32_t offset = 0;
    Endpoint from;
    Endpoint to;
    uint32_t cause = 0; // H323NAT_LEFT_...; 0: rewritten, or not told
};

// A message that the module read, and what it did with it.
struct ReportedMessage {
    uint32_t role = 0;      // H323NAT_ROLE_...
    uint32_t direction = 0; // H323NAT_SENT or H323NAT_RECEIVED
    uint32_t flags = 0;     // H323NAT_MESSAGE_...
    Endpoint inside;
    Endpoint outside;
    Endpoint host;    // the private end whichever way it went, as far as the reporter knows it
    std::string name; // "setup", "openLogicalChannelAck"; empty when it was not understood so far
    uint64_t call = 0;
    std::string callIdentifier;  // 16 octets, or none
    std::vector<uint8_t> octets; // as it came
    std::vector<ReportedAddress> rewritten;
    std::vector<ReportedAddress> left;

    [[nodiscard]] std::vector<uint8_t> octetsAfter() const;
};

// A call that the module follows from here on, or not any more.
struct ReportedCall {
    uint64_t call = 0;
    bool ended = false;
    uint32_t direction = 0; // H323NAT_SENT: the private host calls
    Endpoint inside;
    Endpoint outside;
    std::string callIdentifier; // 16 octets, or none
    std::string callingAlias;   // UTF-8
    std::string calledAlias;
    uint32_t cause = 0; // ended: the release's cause of Q.850, 0 when none was told
    uint32_t end = 0;   // ended: H323NAT_END_...
};

inline Endpoint endpointOf(const H323Endpoint& endpoint) {
    return {endpoint.address, endpoint.port};
}

ReportedCall reportedCall(const H323ObservedCall& call, bool ended);

// An alias as UTF-8. Its characters as they stand: digits and names of one octet a character are
// printable; anything else of even length is UTF-16, most significant octet first. What is not to
// be seen, or moves what is, becomes U+FFFD.
std::string aliasText(const std::string& characters);

// What the octets of a message with this role, H323NAT_ROLE_..., are to the locator.
LocatedType locatedType(uint32_t role);

// Addresses of these networks that a message still tells its receiver, by what went out, whatever
// the module says; with the module's cause where it told one.
std::vector<ReportedAddress> addressesRemaining(const ReportedMessage& message,
                                                std::span<const Network> networks);

// A path without the members that every message has: "setup.h245Address" for
// "h323-uu-pdu.h323-message-body.setup.h245Address.ipAddress".
std::string shortPath(const std::string& path);

// Gathers what the module tells while it looks at packets, and remembers which connections it wants
// to see.
class MessageLog final : public ModuleObserver {
public:
    // Whether the next two have nothing to give.
    [[nodiscard]] bool empty() const { return messages_.empty() && calls_.empty(); }

    // The messages since the last call.
    std::vector<ReportedMessage> takeMessages();

    // The calls that began or ended since the last call.
    std::vector<ReportedCall> takeCalls();

    // Whether the endpoint is one end of a TCP connection that was announced and is not over.
    [[nodiscard]] bool isAnnounced(const Endpoint& endpoint) const {
        return announced_.contains({Protocol::Tcp, endpoint});
    }

    void onMessage(const H323ObservedMessage& message) override;
    void onRewritten(const H323ObservedAddress& address) override;
    void onLeft(const H323ObservedAddress& address) override;
    void onCallBegan(const H323ObservedCall& call) override;
    void onCallEnded(const H323ObservedCall& call) override;
    void onAnnounced(const H323ObservedConnection& connection) override;
    void onOver(const H323ObservedConnection& connection) override;

private:
    std::vector<ReportedMessage> messages_;
    std::vector<ReportedCall> calls_;
    std::unordered_map<LocalId, uint32_t, LocalIdHash> announced_;
};

} // namespace gateway
