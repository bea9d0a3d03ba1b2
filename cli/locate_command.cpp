#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/given_messages.h"
#include "cli/located_addresses.h"
#include "cli/terminal.h"
#include "tree/message_tree.h"

namespace cli {
namespace {

std::string statusName(LocateStatus status) {
    switch (status) {
    case LocateStatus::complete:
        return "complete";
    case LocateStatus::malformed:
        return "malformed";
    default:
        return "tooDeep";
    }
}

std::string counted(uint32_t count, const char* one, const char* several) {
    return count == 1 ? std::string("1 ") + one : std::to_string(count) + " " + several;
}

/// What the places do not say of the message.
void printRemarks(const LocatedAddresses& found, const std::string& message) {
    if (found.status == LocateStatus::malformed) {
        complain(message + "makes no sense from some point on; \"h323nat decode\" tells where");
    } else if (found.status == LocateStatus::tooDeep) {
        complain(message + "is nested deeper than " + std::to_string(locatorDepth) +
                 " levels or in more than " + std::to_string(locatorSeams) +
                 " fragments; places behind that are not looked up");
    }
    if (found.splitAddresses != 0) {
        complain(message +
                 "warning: " + counted(found.splitAddresses, "address is", "addresses are") +
                 " left out whose octets do not stand together");
    }
    if (found.refusedElements != 0) {
        complain(message + "warning: " + counted(found.refusedElements, "message", "messages") +
                 " in octet strings made no sense and what is behind that in them was not looked "
                 "up");
    }
}

void printText(const GivenMessage& message, const LocatedAddresses& found) {
    if (!message.heading.empty() && !found.places.empty()) {
        std::cout << message.heading << '\n';
    }
    size_t offsetWidth = 0;
    size_t endpointWidth = 0;
    for (const LocatedAddress& place : found.places) {
        offsetWidth = std::max(offsetWidth, std::to_string(place.offset).size());
        endpointWidth = std::max(endpointWidth, gateway::toText(place.endpoint).size());
    }
    for (const LocatedAddress& place : found.places) {
        std::cout << "  " << std::setw(static_cast<int>(offsetWidth)) << std::right << place.offset
                  << "  " << std::setw(static_cast<int>(endpointWidth)) << std::left
                  << gateway::toText(place.endpoint) << "  " << place.path << '\n';
    }
    printRemarks(found, (message.heading.empty() ? "" : message.heading + ": ") + "the message ");
}

std::string jsonOf(const GivenMessage& message, const LocatedAddresses& found) {
    nlohmann::ordered_json object = message.origin;
    object["type"] = message.readings.front().type;
    object["octets"] = message.readings.front().encoding.size();
    object["status"] = statusName(found.status);
    object["splitAddresses"] = found.splitAddresses;
    object["refusedElements"] = found.refusedElements;
    auto& places = object["places"] = nlohmann::ordered_json::array();
    for (const LocatedAddress& place : found.places) {
        places.push_back({{"path", place.path},
                          {"offset", place.offset},
                          {"address", gateway::toText(place.endpoint.address)},
                          {"port", place.endpoint.port}});
    }
    return object.dump();
}

/// A name of the module, OpenLogicalChannel, will do as well.
LocatedType typeOf(const std::string& name) {
    const tree::MessageType* type = tree::findMessageType(name);
    return requireLocatedType(type == nullptr ? name : std::string(type->name));
}

bool run(const GivenMessage& message, JsonArray* array) {
    if (message.readings.size() != 1) {
        throw std::runtime_error("the message reads to its end as none of the top-level types; "
                                 "say with --type what it is");
    }
    const FramedMessage& framed = message.readings.front();
    const LocatedAddresses found = locateAddresses(typeOf(framed.type), framed.encoding);
    if (array != nullptr) {
        array->add(jsonOf(message, found));
    } else {
        printText(message, found);
    }
    return found.status == LocateStatus::complete;
}

} // namespace

void addLocateCommand(CLI::App& app, int& exitStatus) {
    auto* command = app.add_subcommand("locate", "Print where a message's IPv4 addresses lie");
    const auto options = std::make_shared<GivenOptions>();
    addGivenOptions(*command, *options, "offsets of places count octets of the message");
    command->callback(
        [options, &exitStatus] { exitStatus = reportMessages(*options, run) ? 0 : exitFaults; });
}

} // namespace cli
