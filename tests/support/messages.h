// H.225.0 and H.245 messages made with the module's own encoders.
#pragma once

#include <optional>
#include <vector>

#include "nat/listed/transport_address.h"
#include "tests/support/octets.h"

namespace test_support {

/// A transport address; without an endpoint it is an IPv6 address.
struct TestAddress {
    std::optional<Endpoint> ipv4;
};

using OptionalAddress = std::optional<TestAddress>;

inline TestAddress ipv4(uint32_t address, uint16_t port) {
    return {Endpoint{address, port}};
}
inline const TestAddress ipv6 = {};

/// An OpenLogicalChannel over RTP and, with `separateStack`, a T.120 address.
struct ChannelSpec {
    bool forwardOverRtp = true; // otherwise the forward channel has no multiplex parameters
    OptionalAddress forwardMedia = {};
    OptionalAddress forwardControl = {};
    bool reverse = false; // reverseLogicalChannelParameters are present
    OptionalAddress reverseMedia = {};
    OptionalAddress reverseControl = {};
    OptionalAddress separateStack = {};
    bool t120 = false; // the forward channel carries T.120
    uint16_t number = 101;
};

struct AcknowledgementSpec {
    bool overRtp = true; // forwardMultiplexAckParameters are present
    OptionalAddress media = {};
    OptionalAddress control = {};
    OptionalAddress separateStack = {};
    uint16_t number = 101;
    uint16_t reverseNumber = 0; // 0: the channel has no reverse direction
};

/// One element of a fastStart list.
Octets fastStartElement(const ChannelSpec& spec);

/// H.245 messages, TPKT header included.
Octets openLogicalChannel(const ChannelSpec& spec);
Octets openLogicalChannelAck(const AcknowledgementSpec& spec);
Octets roundTripDelayRequest();

/// Encodings of H323-UserInformation.
struct SetupSpec {
    OptionalAddress destCallSignalAddress = {};
    std::optional<std::vector<Octets>> fastStart = {};
    uint8_t call = 0; // the last octet of the call identifier; 0: there is none
};
Octets setup(const SetupSpec& spec);

enum class Answer { callProceeding, connect, alerting, progress };
Octets answer(Answer kind, const OptionalAddress& h245Address);
Octets releaseComplete();
Octets emptyBody();

/// Encodings of RasMessage.
Octets gatekeeperRequest(const TestAddress& rasAddress);
Octets registrationRequest(const std::vector<TestAddress>& callSignalAddress,
                           const std::vector<TestAddress>& rasAddress);
Octets unregistrationRequest(const TestAddress& callSignalAddress);

/// Puts a TPKT header before `content`.
Octets tpkt(const Octets& content);

/// A Q.931 message with a User-user element for each user information, TPKT header included.
/// Between them stand the elements of `before`, already encoded.
Octets q931(const std::vector<Octets>& userInformation, const Octets& before = {});

/// Parts of a Q.931 message.
Octets userUserElement(const Octets& userInformation);
inline constexpr size_t firstUserInformation = 13; // its offset when no other element precedes it

} // namespace test_support
