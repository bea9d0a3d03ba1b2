#include "report/message_data.h"

#include "report/markup.h"
#include "tree/value_text.h"

#include <nlohmann/json.hpp>

namespace report {
namespace {

using Json = nlohmann::ordered_json;

const char* typeName(uint32_t role) {
    switch (role) {
    case H323NAT_ROLE_RAS:
        return "H225RasMessage";
    case H323NAT_ROLE_H245:
        return "H245MultimediaSystemControlMessage";
    default:
        return "H225H323_UserInformation";
    }
}

} // namespace

size_t MessageData::stringNumber(const std::string& json) {
    const auto [found, isNew] = numbers_.try_emplace(json, strings_.size());
    if (isNew) {
        strings_.push_back(json);
    }
    return found->second;
}

void MessageData::appendTree(std::string& json, const tree::Node& node) {
    // The values of texts are escaped for JSON already.
    json += '[' + std::to_string(stringNumber(Json(node.name).dump())) + ',' +
            std::to_string(stringNumber(tree::valueJson(node))) + ',' +
            (node.bitOffset == tree::unknownOffset ? "-1" : std::to_string(node.bitOffset)) + ',' +
            std::to_string(node.bitLength);
    for (const tree::Node& child : node.children) {
        json += ',';
        appendTree(json, child);
    }
    json += ']';
}

size_t MessageData::add(const LadderMessage& message, const std::string& title) {
    const gateway::ReportedMessage& content = message.content;
    Json data;
    data["title"] = title;
    data["octets"] = tree::hexText(content.octets);
    data["changed"] = Json::array();
    for (const gateway::ReportedAddress& address : content.rewritten) {
        data["changed"].push_back({address.offset, gateway::toText(address.from),
                                   gateway::toText(address.to), address.path,
                                   gateway::shortPath(address.path)});
    }
    data["left"] = Json::array();
    for (const gateway::ReportedAddress& address : message.remaining) {
        data["left"].push_back({address.offset, gateway::toText(address.from),
                                gateway::leftCauseText(address.cause), address.path,
                                gateway::shortPath(address.path)});
    }
    const tree::MessageType* const type = tree::findMessageType(typeName(content.role));
    std::string tree;
    if (type != nullptr && treeOctets_ < mostTrees_) {
        const tree::DecodedMessage decoded = tree::decodeMessage(*type, content.octets);
        appendTree(tree, decoded.root);
        treeOctets_ += tree.size();
        if (decoded.status != 0) {
            data["error"] = "Reading failed near octet " + std::to_string(decoded.failedAt) +
                            (decoded.failedPath.empty() ? "" : ", in " + decoded.failedPath);
        }
    } else {
        data["error"] = "This page holds too many trees already: h323nat decode shows this one.";
    }
    std::string text = data.dump(-1, ' ', false, Json::error_handler_t::replace);
    text.pop_back();
    messages_.push_back(text + (tree.empty() ? "" : ",\"tree\":" + tree) + '}');
    return messages_.size() - 1;
}

void MessageData::write(std::ostream& out) const {
    const auto list = [&out](const std::vector<std::string>& values) {
        const char* separator = "";
        for (const std::string& value : values) {
            out << separator << scriptData(value);
            separator = ",\n";
        }
    };
    out << "{\"messages\":[";
    list(messages_);
    out << "],\"strings\":[";
    list(strings_);
    out << "]}";
}

} // namespace report
