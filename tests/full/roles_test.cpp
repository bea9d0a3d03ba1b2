// Every place of an address, sent and received: what the host is asked, and what is written. The
// messages are those of tests/vectors, which reach every place that the modules have.

#include <gtest/gtest.h>

#include <map>

#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

enum class Asked { media, rtcp, ras, control, t120OrMedia, nothing };

struct PlaceRow {
    Asked asked;
    std::vector<const char*> ends; // of a path without list indexes
};

// The first row that fits counts.
const PlaceRow placeRows[] = {
    {Asked::t120OrMedia,
     {"h2250LogicalChannelParameters.mediaChannel",
      "h2250LogicalChannelAckParameters.mediaChannel"}},
    {Asked::media,
     {"communicationModeTable.mediaChannel", "rtpAddress.sendAddress", "rtpAddress.recvAddress"}},
    {Asked::rtcp,
     {"mediaControlChannel", "rtcpAddress.sendAddress", "rtcpAddress.recvAddress",
      "rtcpAddresses.sendAddress", "rtcpAddresses.recvAddress"}},
    {Asked::control, // T.120
     {"networkAddress.localAreaAddress", "perCallInfo.data.sendAddress",
      "perCallInfo.data.recvAddress"}},
    {Asked::control, // H.245
     {"setup.h245Address", "callProceeding.h245Address", "alerting.h245Address",
      "connect.h245Address", "progress.h245Address", "facility.h245Address",
      "perCallInfo.h245.sendAddress", "perCallInfo.h245.recvAddress"}},
    {Asked::control, // signalling
     {"sourceCallSignalAddress", "destCallSignalAddress", "srcCallSignalAddress",
      "callSignalAddress", "alternativeAddress", "signalAddress", "transportID",
      "perCallInfo.callSignalling.sendAddress", "perCallInfo.callSignalling.recvAddress"}},
    {Asked::ras, {"rasAddress", "replyAddress"}},
    // Nothing tells the host how to map these.
    {Asked::nothing,
     {"alternateTransportAddresses.annexE", "alternateTransportAddresses.sctp",
      "content.transport"}},
};

std::string withoutIndexes(const std::string& path) {
    std::string plain;
    bool index = false;
    for (const char character : path) {
        index |= character == '[';
        if (!index) {
            plain += character;
        }
        index &= character != ']';
    }
    for (const std::string form : {".ipAddress", ".iPAddress", ".ipSourceRoute",
                                   ".iPSourceRouteAddress", ".unicastAddress"}) {
        if (plain.ends_with(form)) {
            plain.resize(plain.size() - form.size());
        }
    }
    return plain;
}

const PlaceRow& rowOf(const std::string& path) {
    const std::string plain = "." + withoutIndexes(path);
    for (const PlaceRow& row : placeRows) {
        for (const char* end : row.ends) {
            if (plain.ends_with(std::string(".") + end)) {
                return row;
            }
        }
    }
    throw std::runtime_error("no role for " + plain);
}

/// A private host with a confirmed registration, a call and an H.245 connection of that call.
struct Party {
    FullHost host{16};
    EndpointKey ras = {privateParty, 1719};
    TcpCall signalling;
    TcpCall control;

    Party() : signalling(begin(host)), control(open(host, signalling)) { host.takeAsked(); }

    static TcpCall begin(FullHost& host) {
        host.discover();
        return {host, {privateParty, 50000}, {outsideParty, 1720}};
    }
    static TcpCall open(FullHost& host, TcpCall& signalling) {
        signalling.sent(plainSetup());
        const EndpointKey announced = {outsideParty, 38333};
        signalling.received(
            q931({answer(Answer::connect, ipv4(announced.address, announced.port))}));
        return {host, {privateParty, 51000}, announced};
    }

    /// The message after its way through the module.
    Octets pass(const PlacedMessage& message, bool sent) {
        if (message.type == "H225RasMessage") {
            const EndpointKey keeper = {gatekeeper, 1719};
            return sent ? host.sendDatagram(ras, keeper, message.octets)
                        : host.receiveDatagram(keeper, FullHost::publicOf(ras), message.octets);
        }
        const bool isControl = message.type == "H245MultimediaSystemControlMessage";
        const Octets packet = isControl ? tpkt(message.octets) : q931({message.octets});
        TcpCall& connection = isControl ? control : signalling;
        Octets after = sent ? connection.sent(packet) : connection.received(packet);
        after.erase(after.begin(), after.begin() + (isControl ? 4 : firstUserInformation));
        return after;
    }
};

/// Two messages for each place are enough.
std::vector<PlacedMessage> messagesForEveryPlace() {
    std::vector<PlacedMessage> chosen;
    std::map<std::string, int> seen;
    for (const PlacedMessage& message : placedMessages()) {
        bool fresh = false;
        for (const PlacedMessage::Place& place : message.places) {
            const std::string path = withoutIndexes(place.path);
            const size_t shown = std::min(path.size(), size_t{45}); // the last members
            fresh |= ++seen[message.type + path.substr(path.size() - shown)] <= 2;
        }
        if (fresh && message.type != "H245OpenLogicalChannel") {
            chosen.push_back(message);
        }
    }
    EXPECT_GT(seen.size(), 150U);
    return chosen;
}

/// What the host must have been asked for the place, whose port is `port`.
std::vector<std::string> allowedRequests(Asked asked, uint16_t port) {
    const auto line = [](const char* kind, uint16_t number, const char* remote) {
        return std::string(kind) + " " + endpointText(privateParty, number) + " > " + remote;
    };
    const auto below = static_cast<uint16_t>(port - 1);
    switch (asked) {
    case Asked::media:
        return {line("media", port, "1.1.1.1")};
    case Asked::rtcp:
        return {line("media", below, "1.1.1.1")};
    case Asked::ras:
        return {line("media", port, "203.0.113.8")};
    case Asked::t120OrMedia:
        return {line("media", port, "1.1.1.1"), line("control", port, "1.1.1.1")};
    case Asked::control:
        return {line("control", port, "1.1.1.1")};
    case Asked::nothing:
        break;
    }
    return {};
}

TEST(Roles, AskTheHostForEveryPlaceThatAPrivateHostSends) {
    for (PlacedMessage message : messagesForEveryPlace()) {
        Party party;
        Octets expected = message.octets;
        std::vector<std::vector<std::string>> requests;
        for (size_t index = 0; index < message.places.size(); ++index) {
            const PlacedMessage::Place& place = message.places[index];
            const Asked asked = rowOf(place.path).asked;
            const auto port =
                static_cast<uint16_t>(20000 + 4 * index + (asked == Asked::rtcp ? 1 : 0));
            setEndpoint(message.octets, place.offset, {privateParty, port});
            setEndpoint(expected, place.offset,
                        asked == Asked::nothing ? EndpointKey{privateParty, port}
                                                : FullHost::publicOf({privateParty, port}));
            if (asked != Asked::nothing) {
                requests.push_back(allowedRequests(asked, port));
            }
        }
        SCOPED_TRACE(message.places[0].path + " in " + toHex(message.octets).substr(0, 400));
        ASSERT_EQ(toHex(party.pass(message, true)), toHex(expected));
        const std::vector<std::string> askedFor = party.host.takeAsked();
        ASSERT_EQ(askedFor.size(), requests.size());
        for (size_t index = 0; index < requests.size(); ++index) {
            ASSERT_NE(std::find(requests[index].begin(), requests[index].end(), askedFor[index]),
                      requests[index].end())
                << askedFor[index];
        }
    }
}

TEST(Roles, GiveBackThePrivateEndpointInEveryPlaceThatIsReceived) {
    for (PlacedMessage message : messagesForEveryPlace()) {
        Party party;
        const EndpointKey media = {privateParty, 5000};
        const EndpointKey listening = {privateParty, 47231};
        party.signalling.sent(
            q931({answer(Answer::connect, ipv4(listening.address, listening.port)),
                  setup({{}, {{fastStartElement({true, ipv4(media.address, media.port)})}}})}));
        Octets expected = message.octets;
        for (size_t index = 0; index < message.places.size(); ++index) {
            const PlacedMessage::Place& place = message.places[index];
            const Asked asked = rowOf(place.path).asked;
            const bool udp = asked == Asked::media || asked == Asked::rtcp || asked == Asked::ras ||
                             asked == Asked::t120OrMedia;
            EndpointKey inside = udp ? media : listening;
            inside.port = static_cast<uint16_t>(inside.port + (asked == Asked::rtcp ? 1 : 0));
            // Every third one has a port that was never mapped.
            const bool ours = index % 3 != 2;
            EndpointKey outside = FullHost::publicOf(inside);
            outside.port = static_cast<uint16_t>(outside.port + (ours ? 0 : 100));
            setEndpoint(message.octets, place.offset, outside);
            setEndpoint(expected, place.offset, ours ? inside : outside);
        }
        party.host.takeAsked();
        SCOPED_TRACE(message.places[0].path + " in " + toHex(message.octets).substr(0, 400));
        ASSERT_EQ(toHex(party.pass(message, false)), toHex(expected));
        ASSERT_EQ(party.host.takeAsked(), std::vector<std::string>{});
    }
}

} // namespace
