#include "gateway/message_log.h"

#include "locator/path_names.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

std::string textOf(const H323Octets& octets) {
    return {octets.data, octets.data + octets.length};
}

void appendUtf8(std::string& text, uint32_t character) {
    if (character < 0x80) {
        text += static_cast<char>(character);
        return;
    }
    if (character < 0x800) {
        text += static_cast<char>(0xC0 | character >> 6);
    } else {
        text += static_cast<char>(0xE0 | character >> 12);
        text += static_cast<char>(0x80 | (character >> 6 & 0x3F));
    }
    text += static_cast<char>(0x80 | (character & 0x3F));
}

ReportedAddress reportOf(const H323ObservedAddress& address) {
    return {textOf(address.path), address.offset, endpointOf(address.from), endpointOf(address.to),
            address.cause};
}

// The ends of a connection by which its packets are known; port 0 is none.
std::array<Endpoint, 3> endsOf(const H323ObservedConnection& connection) {
    return {endpointOf(connection.inside), endpointOf(connection.publicEndpoint),
            endpointOf(connection.outside)};
}

// Such a connection is announced by every message that asks for the mapping, and over once.
bool isMapped(const H323ObservedConnection& connection) {
    return connection.publicEndpoint.port != 0;
}

// Strangers choose their aliases: nothing of them may steer a terminal or turn a line around.
bool isShown(uint32_t character) {
    struct Range {
        uint32_t first;
        uint32_t last;
    };
    static constexpr Range hidden[] = {
        {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x200B, 0x200F},
        {0x2028, 0x202E}, {0x2060, 0x206F}, {0xD800, 0xDFFF}, {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFF}};
    return std::none_of(std::begin(hidden), std::end(hidden), [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

} // namespace

std::string aliasText(const std::string& characters) {
    constexpr uint32_t replacement = 0xFFFD;
    const bool narrow = characters.size() % 2 != 0 ||
                        std::all_of(characters.begin(), characters.end(),
                                    [](char octet) { return octet >= 0x20 && octet < 0x7F; });
    std::string utf8;
    for (size_t i = 0; i < characters.size(); i += narrow ? 1 : 2) {
        uint32_t character = static_cast<uint8_t>(characters[i]);
        if (!narrow) {
            character = character << 8 | static_cast<uint8_t>(characters[i + 1]);
        }
        const bool shown = isShown(character) && (!narrow || character < 0x80);
        appendUtf8(utf8, shown ? character : replacement);
    }
    return utf8;
}

ReportedCall reportedCall(const H323ObservedCall& call, bool ended) {
    return {call.call,
            ended,
            call.direction,
            endpointOf(call.inside),
            endpointOf(call.outside),
            textOf(call.callIdentifier),
            aliasText(textOf(call.callingAlias)),
            aliasText(textOf(call.calledAlias)),
            call.cause,
            call.end};
}

LocatedType locatedType(uint32_t role) {
    switch (role) {
    case H323NAT_ROLE_RAS:
        return LocatedType::rasMessage;
    case H323NAT_ROLE_H245:
        return LocatedType::systemControlMessage;
    default:
        return LocatedType::userInformation;
    }
}

std::vector<uint8_t> ReportedMessage::octetsAfter() const {
    std::vector<uint8_t> after = octets;
    for (const ReportedAddress& address : rewritten) {
        const uint64_t endpoint = static_cast<uint64_t>(address.to.address) << 16 | address.to.port;
        for (size_t i = 0; i < 6 && address.offset + i < after.size(); ++i) {
            after[address.offset + i] = static_cast<uint8_t>(endpoint >> (40 - 8 * i));
        }
    }
    return after;
}

std::vector<ReportedAddress> addressesRemaining(const ReportedMessage& message,
                                                std::span<const Network> networks) {
    std::vector<ReportedAddress> remaining;
    const std::vector<uint8_t> octets = message.octetsAfter();
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, locatedType(message.role), octets.data(), octets.size(),
                  placeKindBit(PlaceKind::address));
    while (nextPlace(walk, place)) {
        const bool there =
            std::any_of(networks.begin(), networks.end(),
                        [&](const Network& network) { return network.contains(place.address); });
        if (!there || place.port == 0) {
            continue;
        }
        std::string path(placePathCapacity, '\0');
        path.resize(placePath(walk, path.data(), path.size()));
        const auto told = std::find_if(
            message.left.begin(), message.left.end(),
            [&](const ReportedAddress& address) { return address.offset == place.offset; });
        remaining.push_back(
            {path,
             static_cast<uint32_t>(place.offset),
             {place.address, place.port},
             {place.address, place.port},
             told == message.left.end() ? uint32_t{H323NAT_LEFT_NOT_LISTED} : told->cause});
    }
    return remaining;
}

std::string shortPath(const std::string& path) {
    static constexpr std::array<std::string_view, 15> common = {"h323-uu-pdu",
                                                                "h323-message-body",
                                                                "request",
                                                                "response",
                                                                "command",
                                                                "indication",
                                                                "multiplexParameters",
                                                                "forwardMultiplexAckParameters",
                                                                "h2250LogicalChannelParameters",
                                                                "h2250LogicalChannelAckParameters",
                                                                "unicastAddress",
                                                                "iPAddress",
                                                                "ipAddress",
                                                                "iPSourceRouteAddress",
                                                                "ipSourceRoute"};
    std::string text;
    std::string_view rest = path;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('.'), rest.size());
        const std::string_view component = rest.substr(0, end);
        if (std::find(common.begin(), common.end(), component) == common.end()) {
            text += (text.empty() ? "" : ".") + std::string(component);
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text;
}

std::vector<ReportedMessage> MessageLog::takeMessages() {
    return std::exchange(messages_, {});
}

std::vector<ReportedCall> MessageLog::takeCalls() {
    return std::exchange(calls_, {});
}

void MessageLog::onCallBegan(const H323ObservedCall& call) {
    calls_.push_back(reportedCall(call, false));
}

void MessageLog::onCallEnded(const H323ObservedCall& call) {
    calls_.push_back(reportedCall(call, true));
}

void MessageLog::onMessage(const H323ObservedMessage& message) {
    ReportedMessage& report = messages_.emplace_back();
    report.role = message.role;
    report.direction = message.direction;
    report.flags = message.flags;
    report.inside = endpointOf(message.inside);
    report.outside = endpointOf(message.outside);
    report.name = textOf(message.name);
    report.call = message.call;
    report.callIdentifier = textOf(message.callIdentifier);
    report.octets.assign(message.octets.data, message.octets.data + message.octets.length);
}

void MessageLog::onRewritten(const H323ObservedAddress& address) {
    if (!messages_.empty()) {
        messages_.back().rewritten.push_back(reportOf(address));
    }
}

void MessageLog::onLeft(const H323ObservedAddress& address) {
    if (!messages_.empty()) {
        messages_.back().left.push_back(reportOf(address));
    }
}

void MessageLog::onAnnounced(const H323ObservedConnection& connection) {
    if (connection.protocol == static_cast<uint32_t>(Protocol::Tcp)) {
        for (const Endpoint& end : endsOf(connection)) {
            if (end.port != 0) {
                uint32_t& times = announced_[{Protocol::Tcp, end}];
                times = isMapped(connection) ? 1 : times + 1;
            }
        }
    }
}

void MessageLog::onOver(const H323ObservedConnection& connection) {
    if (connection.protocol != static_cast<uint32_t>(Protocol::Tcp)) {
        return;
    }
    for (const Endpoint& end : endsOf(connection)) {
        const auto found = announced_.find({Protocol::Tcp, end});
        if (end.port != 0 && found != announced_.end() &&
            (isMapped(connection) || --found->second == 0)) {
            announced_.erase(found);
        }
    }
}

} // namespace gateway
