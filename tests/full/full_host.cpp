#include "tests/full/full_host.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "nat/full/scope.h"
#include "nat/host_callbacks.h"
#include "tests/support/messages.h"
#include "tests/vectors/vector_set.h"

namespace test_support {
namespace {

FullHost* host = nullptr;
ToldLines* told = nullptr;

std::string octetsText(const H323Octets& octets) {
    return {reinterpret_cast<const char*>(octets.data), octets.length};
}

EndpointKey key(const H323Endpoint& endpoint) {
    return {endpoint.address, endpoint.port};
}

std::string shortPath(const H323Octets& octets) {
    std::string path = octetsText(octets);
    for (const std::string common : {"h323-uu-pdu.", "h323-message-body."}) {
        if (path.starts_with(common)) {
            path.erase(0, common.size());
        }
    }
    return path;
}

const char* roleText(uint32_t role) {
    constexpr const char* roles[] = {"none", "signalling", "h245", "ras", "media", "t120"};
    return roles[role];
}

std::string directionText(uint32_t direction) {
    return direction == H323NAT_SENT ? "sent" : "received";
}

std::string callText(const H323ObservedCall& call) {
    return std::to_string(call.call) + " " + directionText(call.direction) + " " +
           text(key(call.inside)) + " " + text(key(call.outside));
}

std::string connectionText(const H323ObservedConnection& connection) {
    return std::string(roleText(connection.role)) + (connection.protocol == 6 ? " tcp " : " udp ") +
           text(key(connection.inside)) + " " + text(key(connection.publicEndpoint)) + " " +
           text(key(connection.outside));
}

std::string addressTextOf(const H323ObservedAddress& address) {
    return shortPath(address.path) + " " + roleText(address.role) + " " + text(key(address.from));
}

void note(const std::string& word, const std::string& line) {
    told->lines.push_back(word + " " + line);
}

H323Observer recordingObserver() {
    H323Observer observer = {};
    observer.size = sizeof observer;
    observer.messageRead = [](void*, const H323ObservedMessage* message) {
        std::string flags;
        flags += (message->flags & H323NAT_MESSAGE_SIGNED) != 0 ? " signed" : "";
        flags += (message->flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) != 0 ? " not-understood" : "";
        told->callsOfMessages.insert(message->call);
        note("message",
             directionText(message->direction) + " " + octetsText(message->name) + flags);
    };
    observer.addressRewritten = [](void*, const H323ObservedAddress* address) {
        note("rewritten", addressTextOf(*address) + " " + text(key(address->to)));
    };
    observer.addressLeft = [](void*, const H323ObservedAddress* address) {
        note("left", addressTextOf(*address) + " " + std::to_string(address->cause));
    };
    observer.callBegan = [](void*, const H323ObservedCall* call) {
        note("began", callText(*call));
    };
    observer.callEnded = [](void*, const H323ObservedCall* call) {
        note("ended", std::to_string(call->call) + " " + std::to_string(call->end) + " " +
                          std::to_string(call->cause));
    };
    observer.connectionAnnounced = [](void*, const H323ObservedConnection* connection) {
        note("announced", connectionText(*connection));
    };
    observer.connectionOver = [](void*, const H323ObservedConnection* connection) {
        note("over", connectionText(*connection));
    };
    return observer;
}

} // namespace

struct FullHostCallbacks {
    static bool answer(const char* kind, uint32_t privateAddress, uint32_t remoteAddress,
                       uint16_t privatePort, uint32_t* publicPort, uint32_t* publicAddress) {
        const std::string remote = endpointText(remoteAddress, 0);
        host->asked.push_back(std::string(kind) + " " + endpointText(privateAddress, privatePort) +
                              " > " + remote.substr(0, remote.find(':')));
        if (host->refusedPorts.count(privatePort) != 0) {
            return false;
        }
        const EndpointKey given = FullHost::publicOf({privateAddress, privatePort});
        *publicPort = 0xabcd0000U | static_cast<uint16_t>(given.port + host->moved);
        *publicAddress = given.address;
        return true;
    }

    static uint32_t openMedia(HostContext*, uint32_t privateAddress, uint32_t remoteAddress,
                              uint16_t privatePort, uint32_t* publicPort, uint32_t* publicAddress,
                              HostMappingRecord**, HostMappingRecord**, uint8_t* skipLinking) {
        *skipLinking = 1;
        return answer("media", privateAddress, remoteAddress, privatePort, publicPort,
                      publicAddress)
                   ? 0
                   : 1;
    }

    static uint8_t openControl(HostContext*, uint32_t privateAddress, uint32_t remoteAddress,
                               uint16_t privatePort, uint32_t* publicPort, uint32_t* publicAddress,
                               uint32_t*) {
        return answer("control", privateAddress, remoteAddress, privatePort, publicPort,
                      publicAddress)
                   ? 0
                   : 1;
    }

    static HostMappingRecord* findInside(uint32_t, uint16_t, uint32_t, uint16_t) { return nullptr; }

    static HostMappingRecord* findOutside(uint32_t publicAddress, uint16_t publicPort,
                                          uint32_t remoteAddress, uint16_t remotePort) {
        for (const FullHost::Flow& flow : host->flows_) {
            if (flow.publicEndpoint == EndpointKey{publicAddress, publicPort} &&
                flow.outside == EndpointKey{remoteAddress, remotePort}) {
                host->record_.insideAddress = flow.inside.address;
                host->record_.insidePort = flow.inside.port;
                return &host->record_;
            }
        }
        return nullptr;
    }
};

std::string text(const EndpointKey& endpoint) {
    return endpointText(endpoint.address, endpoint.port);
}

TestAddress at(const EndpointKey& endpoint) {
    return ipv4(endpoint.address, endpoint.port);
}

ToldLines::ToldLines() {
    told = this;
    const H323Observer observer = recordingObserver();
    H323SetObserver(&observer);
}

ToldLines::~ToldLines() {
    H323SetObserver(nullptr);
    told = nullptr;
}

FullHost::FullHost(uint32_t calls) {
    host = this;
    context.publicAddress = publicAddress;
    hostCallbacks = {nullptr,
                     nullptr,
                     nullptr,
                     FullHostCallbacks::openMedia,
                     FullHostCallbacks::openControl,
                     FullHostCallbacks::findInside,
                     FullHostCallbacks::findOutside};
    EXPECT_TRUE(full_scope::enter(calls));
    full_scope::state.publishedAddress = 0;
}

FullHost::~FullHost() {
    full_scope::leave();
    hostCallbacks = {};
    host = nullptr;
}

EndpointKey FullHost::publicOf(const EndpointKey& inside) {
    const uint32_t number = (inside.address & 0xff) - 4;
    return {publicAddress, static_cast<uint16_t>(inside.port + 10000 * number)};
}

static Segment datagram(const EndpointKey& from, const EndpointKey& to, const Octets& message) {
    Segment segment;
    segment.flow = {from.address, to.address, from.port, to.port};
    segment.udp = true;
    segment.payload = message;
    return segment;
}

Octets FullHost::sendDatagram(const EndpointKey& inside, const EndpointKey& outside,
                              const Octets& message) {
    return send(datagram(inside, outside, message));
}

Octets FullHost::receiveDatagram(const EndpointKey& outside, const EndpointKey& publicEndpoint,
                                 const Octets& message) {
    return receive(datagram(outside, publicEndpoint, message));
}

void FullHost::discover(const EndpointKey& ras, uint32_t keeper) {
    sendDatagram(ras, {keeper, 1719}, messageWith("gatekeeperRequest.rasAddress.ipAddress", ras));
    receiveDatagram({keeper, 1719}, publicOf(ras),
                    messageWith("gatekeeperConfirm.rasAddress.ipAddress", {keeper, 1719}));
}

std::vector<std::string> FullHost::takeAsked() {
    return std::exchange(asked, {});
}

std::vector<std::string> FullHost::takeTold(const std::string& word) {
    std::vector<std::string> lines;
    for (const std::string& line : std::exchange(told, {})) {
        if (line.starts_with(word)) {
            lines.push_back(line);
        }
    }
    return lines;
}

TcpCall::TcpCall(FullHost& fullHost, const EndpointKey& insideEnd, const EndpointKey& outsideEnd,
                 Opened opened, uint32_t sentFirst, uint32_t receivedFirst)
    : inside(insideEnd),
      publicEndpoint(opened == Opened::byPrivate ? EndpointKey{publicAddress, insideEnd.port}
                     : insideEnd.port == 1720 &&
                             insideEnd.address == full_scope::state.publishedAddress
                         ? EndpointKey{publicAddress, 1720}
                         : FullHost::publicOf(insideEnd)),
      outside(outsideEnd), host_(fullHost), sentFirst_(sentFirst), receivedFirst_(receivedFirst) {
    begin(opened);
}

TcpCall::TcpCall(FullHost& fullHost, const EndpointKey& insideEnd, const EndpointKey& outsideEnd,
                 Opened opened, const EndpointKey& publicEnd)
    : inside(insideEnd), publicEndpoint(publicEnd), outside(outsideEnd), host_(fullHost),
      sentFirst_(1000), receivedFirst_(2000) {
    begin(opened);
}

// Gives what went on.
Octets TcpCall::pass(bool sent, uint32_t offset, uint8_t flags, const Octets& payload) {
    const EndpointKey& from = sent ? inside : outside;
    const EndpointKey& to = sent ? outside : publicEndpoint;
    const auto begunWith = [this](bool ofSent) { return ofSent ? sentFirst_ : receivedFirst_; };
    Segment segment;
    segment.flow = {from.address, to.address, from.port, to.port};
    segment.sequence = begunWith(sent) + offset;
    if ((flags & tcpAck) != 0) {
        segment.acknowledgement =
            begunWith(!sent) + static_cast<uint32_t>(sent ? receivedSoFar : sentSoFar);
    }
    segment.payload = payload;
    segment.flags = flags;
    return sent ? host_.send(segment) : host_.receive(segment);
}

void TcpCall::begin(Opened opened) {
    constexpr uint32_t before = static_cast<uint32_t>(-1);
    host_.flows_.push_front({inside, publicEndpoint, outside});
    pass(opened == Opened::byPrivate, before, tcpSyn, {});
    pass(opened != Opened::byPrivate, before, tcpSyn | tcpAck, {});
}

Octets TcpCall::sentAt(size_t offset, const Octets& payload, uint8_t flags) {
    return pass(true, static_cast<uint32_t>(offset), flags, payload);
}

Octets TcpCall::receivedAt(size_t offset, const Octets& payload, uint8_t flags) {
    return pass(false, static_cast<uint32_t>(offset), flags, payload);
}

Octets TcpCall::sent(const Octets& payload) {
    const size_t offset = std::exchange(sentSoFar, sentSoFar + payload.size());
    return sentAt(offset, payload);
}

Octets TcpCall::received(const Octets& payload) {
    const size_t offset = std::exchange(receivedSoFar, receivedSoFar + payload.size());
    return receivedAt(offset, payload);
}

void TcpCall::close() {
    sentAt(sentSoFar, {}, tcpFin | tcpAck);
    receivedAt(receivedSoFar, {}, tcpFin | tcpAck);
}

const std::vector<PlacedMessage>& placedMessages() {
    static const std::vector<PlacedMessage> messages = [] {
        std::vector<PlacedMessage> read;
        for (const cli::VectorLine& line : readVectors("addresses.txt")) {
            if (line.third == "-" || !line.remark.empty()) {
                continue;
            }
            PlacedMessage message = {line.type, line.encoding, {}};
            std::istringstream places(line.third);
            for (std::string place; std::getline(places, place, ',');) {
                const size_t equals = place.find('=');
                message.places.push_back(
                    {place.substr(0, equals), std::stoul(place.substr(equals + 1))});
            }
            read.push_back(std::move(message));
        }
        return read;
    }();
    return messages;
}

static PlacedMessage chooseMessage(const std::string& pathPart) {
    PlacedMessage best;
    for (const PlacedMessage& message : placedMessages()) {
        for (const PlacedMessage::Place& place : message.places) {
            if (place.path.find(pathPart) != std::string::npos &&
                message.type != "H245OpenLogicalChannel" &&
                (best.places.empty() || message.octets.size() < best.octets.size())) {
                best = {message.type, message.octets, {place}};
            }
        }
    }
    EXPECT_FALSE(best.places.empty()) << "no message with " << pathPart;
    return best;
}

Octets messageWith(const std::string& pathPart, const EndpointKey& endpoint) {
    static std::map<std::string, PlacedMessage> chosen;
    const auto found = chosen.find(pathPart);
    const PlacedMessage& message =
        found != chosen.end() ? found->second
                              : chosen.insert({pathPart, chooseMessage(pathPart)}).first->second;
    Octets octets = message.octets;
    setEndpoint(octets, message.places.at(0).offset, endpoint);
    return octets;
}

Octets plainSetup() {
    return q931({setup({})});
}

Octets connectWith(const EndpointKey& h245Address) {
    return q931({answer(Answer::connect, at(h245Address))});
}

Octets openChannel(const EndpointKey& media) {
    return openLogicalChannel({true, at(media)});
}

static const EndpointKey& connected(TcpCall& call, const EndpointKey& control) {
    call.sent(plainSetup());
    call.received(connectWith(control));
    return control;
}

ControlledCall::ControlledCall(FullHost& host, const EndpointKey& inside,
                               const EndpointKey& control, uint32_t sentFirst)
    : call(host, inside, {outsideParty, 1720}, TcpCall::Opened::byPrivate, sentFirst),
      h245(host, {inside.address, static_cast<uint16_t>(inside.port + 1000)},
           connected(call, control)) {}

EndpointKey firstRewritten(const Octets& before, const Octets& after) {
    const auto differs = std::mismatch(before.begin(), before.end(), after.begin()).first;
    return differs == before.end()
               ? EndpointKey{0, 0}
               : endpointAt(after, static_cast<size_t>(differs - before.begin()));
}

EndpointKey endpointAt(const Octets& octets, size_t offset) {
    EndpointKey endpoint = {0, 0};
    for (size_t index = 0; index < 4; ++index) {
        endpoint.address = endpoint.address << 8 | octets.at(offset + index);
    }
    endpoint.port = static_cast<uint16_t>(octets.at(offset + 4) << 8 | octets.at(offset + 5));
    return endpoint;
}

void setEndpoint(Octets& octets, size_t offset, const EndpointKey& endpoint) {
    overwrite(octets, offset, octetsOfEndpoint(endpoint.address, endpoint.port));
}

size_t recordsInUse() {
    const full_scope::State& state = full_scope::state;
    return state.calls.used + state.connections.used + state.mappings.used + state.claims.used +
           state.announced.used + state.registrations.used + state.streams.blocks.used +
           state.streams.edits.used;
}

} // namespace test_support
