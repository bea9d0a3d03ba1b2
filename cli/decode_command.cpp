#include <cstdint>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>

#include "asn1per/status.h"
#include "cli/commands.h"
#include "cli/given_messages.h"
#include "cli/status_text.h"
#include "cli/terminal.h"
#include "tree/message_tree.h"
#include "tree/value_text.h"

namespace cli {
namespace {

const tree::MessageType& typeNamed(const std::string& name) {
    const tree::MessageType* type = tree::findMessageType(name);
    if (type == nullptr) {
        throw std::runtime_error("no type is called \"" + name +
                                 "\"; names look like H225Setup_UUIE or H245OpenLogicalChannel");
    }
    return *type;
}

/// A message of the input, read as one type.
struct Reading {
    std::string type;
    std::span<const uint8_t> octets;
    tree::DecodedMessage message;
};

Reading readAs(const std::string& type, std::span<const uint8_t> octets) {
    const tree::MessageType& found = typeNamed(type);
    return {found.name, octets, tree::decodeMessage(found, octets)};
}

void printText(const Reading& reading) {
    const tree::DecodedMessage& message = reading.message;
    if (message.status != PER_OK) {
        complain("not a " + reading.type + ": status " + statusText(message.status) +
                 " near octet " + std::to_string(message.failedAt) +
                 (message.failedPath.empty() ? "" : ", in " + message.failedPath));
        return;
    }
    std::cout << tree::treeText(message.root);
    if (message.octetsRead < reading.octets.size()) {
        const auto rest = reading.octets.subspan(message.octetsRead);
        std::cout << "(" << rest.size() << " more octets: " << tree::hexText(rest) << ")\n";
    }
    for (const std::string& warning : message.warnings) {
        complain("warning: " + warning);
    }
}

/// The object of one message; `place` stands first in it.
std::string jsonOf(const Reading& reading, nlohmann::ordered_json place) {
    const tree::DecodedMessage& message = reading.message;
    place["type"] = reading.type;
    place["octets"] = reading.octets.size();
    place["octetsRead"] = message.octetsRead;
    place["status"] = message.status;
    if (message.status != PER_OK) {
        place["failedAt"] = message.failedAt;
        place["failedPath"] = message.failedPath;
    }
    if (message.status == PER_OK && message.octetsRead < reading.octets.size()) {
        place["rest"] = tree::hexText(reading.octets.subspan(message.octetsRead));
    }
    if (!message.warnings.empty()) {
        place["warnings"] = message.warnings;
    }
    std::string text = place.dump();
    text.pop_back();
    return text + ",\"tree\":" + tree::treeJson(message.root) + "}";
}

bool run(const GivenMessage& message, JsonArray* array) {
    if (array == nullptr && !message.heading.empty()) {
        std::cout << message.heading << '\n';
    }
    bool good = true;
    for (const FramedMessage& framed : message.readings) {
        const Reading reading = readAs(framed.type, framed.encoding);
        if (array != nullptr) {
            array->add(jsonOf(reading, message.origin));
        } else {
            printText(reading);
        }
        good = good && reading.message.status == PER_OK;
    }
    return good;
}

} // namespace

void addDecodeCommand(CLI::App& app, int& exitStatus) {
    auto* command = app.add_subcommand("decode", "Print a message as a tree of its fields");
    const auto options = std::make_shared<GivenOptions>();
    addGivenOptions(*command, *options,
                    "offsets count octets of the input, bitOffset bits of the message");
    command->callback(
        [options, &exitStatus] { exitStatus = reportMessages(*options, run) ? 0 : exitFaults; });
}

} // namespace cli
