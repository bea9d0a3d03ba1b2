#include "report/call_json.h"

#include "tree/value_text.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace report {
namespace {

using gateway::Endpoint;
using gateway::ReportedAddress;
using Json = nlohmann::json;

int digitOf(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    throw std::runtime_error("octets are not hexadecimal");
}

std::vector<uint8_t> octetsOf(const std::string& hex) {
    std::vector<uint8_t> octets(hex.size() / 2);
    for (size_t i = 0; i < octets.size(); ++i) {
        octets[i] = static_cast<uint8_t>(digitOf(hex[2 * i]) << 4 | digitOf(hex[2 * i + 1]));
    }
    return octets;
}

Json toJson(const Endpoint& endpoint) {
    return {endpoint.address, endpoint.port};
}

Endpoint endpointOf(const Json& json) {
    return {json.at(0).get<uint32_t>(), json.at(1).get<uint16_t>()};
}

Json toJson(const std::vector<ReportedAddress>& addresses) {
    Json list = Json::array();
    for (const ReportedAddress& address : addresses) {
        list.push_back({address.path, address.offset, toJson(address.from), toJson(address.to),
                        address.cause});
    }
    return list;
}

std::vector<ReportedAddress> addressesOf(const Json& list) {
    std::vector<ReportedAddress> addresses;
    for (const Json& json : list) {
        addresses.push_back({json.at(0).get<std::string>(), json.at(1).get<uint32_t>(),
                             endpointOf(json.at(2)), endpointOf(json.at(3)),
                             json.at(4).get<uint32_t>()});
    }
    return addresses;
}

Json toJson(const LadderMessage& message) {
    const gateway::ReportedMessage& content = message.content;
    return {{"time", message.time},
            {"role", content.role},
            {"direction", content.direction},
            {"flags", content.flags},
            {"name", content.name},
            {"host", toJson(content.host)},
            {"outside", toJson(content.outside)},
            {"octets", tree::hexText(content.octets)},
            {"rewritten", toJson(content.rewritten)},
            {"remaining", toJson(message.remaining)}};
}

LadderMessage messageOf(const Json& json) {
    LadderMessage message;
    json.at("time").get_to(message.time);
    gateway::ReportedMessage& content = message.content;
    json.at("role").get_to(content.role);
    json.at("direction").get_to(content.direction);
    json.at("flags").get_to(content.flags);
    json.at("name").get_to(content.name);
    content.host = endpointOf(json.at("host"));
    content.outside = endpointOf(json.at("outside"));
    content.octets = octetsOf(json.at("octets").get<std::string>());
    content.rewritten = addressesOf(json.at("rewritten"));
    message.remaining = addressesOf(json.at("remaining"));
    return message;
}

Json toJson(const PacketRun& run) {
    return {run.packets, run.first, run.last};
}

PacketRun runOf(const Json& json) {
    return {json.at(0).get<uint64_t>(), json.at(1).get<int64_t>(), json.at(2).get<int64_t>()};
}

Json toJson(const MediaStream& stream) {
    return {{"control", stream.control},   {"inside", toJson(stream.inside)},
            {"told", toJson(stream.told)}, {"remote", toJson(stream.remote)},
            {"sent", toJson(stream.sent)}, {"received", toJson(stream.received)},
            {"lost", toJson(stream.lost)}, {"state", static_cast<unsigned>(stream.state)}};
}

MediaStream streamOf(const Json& json) {
    MediaStream stream;
    json.at("control").get_to(stream.control);
    stream.inside = endpointOf(json.at("inside"));
    stream.told = endpointOf(json.at("told"));
    stream.remote = endpointOf(json.at("remote"));
    stream.sent = runOf(json.at("sent"));
    stream.received = runOf(json.at("received"));
    stream.lost = runOf(json.at("lost"));
    const auto state = json.at("state").get<unsigned>();
    if (state > static_cast<unsigned>(StreamState::Uncounted)) {
        throw std::runtime_error("a stream is in no state that is known");
    }
    stream.state = static_cast<StreamState>(state);
    return stream;
}

Json toJson(const MappingRecord& mapping) {
    const gateway::MappingRequest& request = mapping.request;
    return {{"time", mapping.time},
            {"media", request.kind == gateway::MappingRequest::Kind::Media},
            {"inside", toJson(request.inside)},
            {"public", toJson(request.publicEndpoint)},
            {"granted", request.granted},
            {"reused", request.reused}};
}

MappingRecord mappingOf(const Json& json) {
    MappingRecord mapping;
    json.at("time").get_to(mapping.time);
    gateway::MappingRequest& request = mapping.request;
    using Kind = gateway::MappingRequest::Kind;
    request.kind = json.at("media").get<bool>() ? Kind::Media : Kind::Control;
    request.inside = endpointOf(json.at("inside"));
    request.publicEndpoint = endpointOf(json.at("public"));
    json.at("granted").get_to(request.granted);
    json.at("reused").get_to(request.reused);
    return mapping;
}

template <typename Item> Json listOf(const std::vector<Item>& items) {
    Json list = Json::array();
    for (const Item& item : items) {
        list.push_back(toJson(item));
    }
    return list;
}

CallRecord recordOf(const Json& json) {
    CallRecord record;
    record.isCall = true;
    json.at("identifier").get_to(record.callIdentifier);
    json.at("calling").get_to(record.callingAlias);
    json.at("called").get_to(record.calledAlias);
    json.at("outbound").get_to(record.outbound);
    record.host = endpointOf(json.at("host"));
    record.outside = endpointOf(json.at("outside"));
    json.at("start").get_to(record.start);
    json.at("connected").get_to(record.connected);
    json.at("ended").get_to(record.ended);
    json.at("cause").get_to(record.cause);
    json.at("verdict").get_to(record.verdict);
    for (const Json& message : json.at("messages")) {
        record.messages.push_back(messageOf(message));
    }
    for (const Json& mapping : json.at("mappings")) {
        record.mappings.push_back(mappingOf(mapping));
    }
    for (const Json& stream : json.at("streams")) {
        record.streams.push_back(streamOf(stream));
    }
    for (const Json& finding : json.at("findings")) {
        record.findings.push_back(
            {finding.at("trouble").get<bool>() ? Severity::Trouble : Severity::Note,
             finding.at("text").get<std::string>(), SIZE_MAX});
    }
    return record;
}

} // namespace

std::string callJson(const CallRecord& record) {
    Json findings = Json::array();
    for (const Finding& finding : record.findings) {
        findings.push_back(
            {{"trouble", finding.severity == Severity::Trouble}, {"text", finding.text}});
    }
    const Json json = {{"identifier", record.callIdentifier},
                       {"calling", record.callingAlias},
                       {"called", record.calledAlias},
                       {"outbound", record.outbound},
                       {"host", toJson(record.host)},
                       {"outside", toJson(record.outside)},
                       {"start", record.start},
                       {"connected", record.connected},
                       {"ended", record.ended},
                       {"cause", record.cause},
                       {"verdict", record.verdict},
                       {"findings", findings},
                       {"streams", listOf(record.streams)},
                       {"mappings", listOf(record.mappings)},
                       {"messages", listOf(record.messages)}};
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

CallRecord callFromJson(const std::string& json) {
    try {
        return recordOf(Json::parse(json));
    } catch (const Json::exception& error) {
        throw std::runtime_error(std::string("this is no call's record: ") + error.what());
    }
}

} // namespace report
