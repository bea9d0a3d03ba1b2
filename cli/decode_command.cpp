#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "asn1per/status.h"
#include "cli/capture_messages.h"
#include "cli/commands.h"
#include "cli/framing.h"
#include "cli/hex.h"
#include "cli/message_input.h"
#include "cli/status_text.h"
#include "tree/message_tree.h"

namespace cli {
namespace {

constexpr size_t tpktHeader = 4;
constexpr const char* topLevelTypes[] = {"H225H323_UserInformation", "H225RasMessage",
                                         "H245MultimediaSystemControlMessage"};

struct DecodeOptions {
    std::vector<std::string> words;
    std::string type;
    bool tpkt = false;
    bool ras = false;
    bool json = false;
};

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

/// Smaller is better: whole before cut or too long, then what is read without anything odd.
uint64_t misfit(const Reading& reading) {
    constexpr uint64_t failed = uint64_t{1} << 40;
    constexpr uint64_t tooLong = uint64_t{1} << 32;
    return (reading.message.status != PER_OK ? failed : 0) +
           (reading.message.octetsRead < reading.octets.size() ? tooLong : 0) +
           reading.message.oddities;
}

/// The reading that fits best; all of them when none reads to its end.
std::vector<Reading> guess(std::span<const uint8_t> octets) {
    std::vector<Reading> readings;
    for (const char* type : topLevelTypes) {
        readings.push_back(readAs(type, octets));
    }
    const auto best =
        std::min_element(readings.begin(), readings.end(),
                         [](const Reading& a, const Reading& b) { return misfit(a) < misfit(b); });
    if (best->message.status == PER_OK) {
        return {std::move(*best)};
    }
    return readings;
}

std::vector<Reading> readFrames(std::span<const uint8_t> octets) {
    std::vector<Reading> readings;
    for (const FramedMessage& message : messagesInTpkts(octets)) {
        readings.push_back(readAs(message.type, message.encoding));
    }
    if (readings.empty()) {
        throw std::runtime_error("no message in these octets (a Q.931 message without User-user "
                                 "element holds none)");
    }
    return readings;
}

/// TPKT headers whose lengths lead from one to the next and to the end.
bool areFrames(std::span<const uint8_t> octets) {
    size_t cursor = 0;
    while (octets.size() - cursor > tpktHeader && octets[cursor] == 3 && octets[cursor + 1] == 0) {
        const size_t length = size_t{octets[cursor + 2]} << 8 | octets[cursor + 3];
        if (length <= tpktHeader || length > octets.size() - cursor) {
            return false;
        }
        cursor += length;
    }
    return cursor > 0 && cursor == octets.size();
}

std::vector<Reading> readAll(const DecodeOptions& options, std::span<const uint8_t> octets) {
    if (options.tpkt || (options.type.empty() && !options.ras && areFrames(octets))) {
        return readFrames(octets);
    }
    if (options.ras) {
        return {readAs("H225RasMessage", octets)};
    }
    return options.type.empty() ? guess(octets)
                                : std::vector<Reading>{readAs(options.type, octets)};
}

void printText(const Reading& reading) {
    const tree::DecodedMessage& message = reading.message;
    if (message.status != PER_OK) {
        std::cerr << "h323nat: not a " << reading.type << ": status " << statusText(message.status)
                  << " near octet " << message.failedAt;
        if (!message.failedPath.empty()) {
            std::cerr << ", in " << message.failedPath;
        }
        std::cerr << '\n';
        return;
    }
    std::cout << tree::treeText(message.root);
    if (message.octetsRead < reading.octets.size()) {
        const auto rest = reading.octets.subspan(message.octetsRead);
        std::cout << "(" << rest.size() << " more octets: " << toHex(rest) << ")\n";
    }
    for (const std::string& warning : message.warnings) {
        std::cerr << "h323nat: warning: " << warning << '\n';
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
    if (!message.warnings.empty()) {
        place["warnings"] = message.warnings;
    }
    std::string text = place.dump();
    text.pop_back();
    return text + ",\"tree\":" + tree::treeJson(message.root) + "}";
}

/// Prints messages one by one: trees, or an array with an object for each.
class Output {
public:
    explicit Output(bool json) : json(json) {}

    void add(const Reading& reading, const nlohmann::ordered_json& place) {
        if (json) {
            std::cout << (count == 0 ? "[\n" : ",\n") << jsonOf(reading, place);
        } else {
            printText(reading);
        }
        ++count;
        good = good && reading.message.status == PER_OK;
    }

    bool finish() {
        if (json) {
            std::cout << (count == 0 ? "[]\n" : "\n]\n");
        }
        return good && count > 0;
    }

private:
    bool json;
    bool good = true;
    size_t count = 0;
};

bool decodeCapture(const DecodeOptions& options, const std::string& path) {
    Output output(options.json);
    CaptureMessages messages(path);
    CapturedMessage message;
    bool some = false;
    while (messages.next(message)) {
        some = true;
        if (!options.json) {
            std::cout << placeText(message) << '\n' << std::flush;
        }
        output.add(readAs(message.type, message.encoding),
                   {{"frame", message.frame},
                    {"source", gateway::toText(message.source)},
                    {"destination", gateway::toText(message.destination)}});
    }
    if (!some) {
        std::cerr << "h323nat: " << path << " holds no H.323 message\n";
    }
    return output.finish();
}

bool run(const DecodeOptions& options) {
    const MessageInput input = readMessageInput(options.words);
    if (!input.capture.empty()) {
        if (options.tpkt || options.ras || !options.type.empty()) {
            throw std::runtime_error("--tpkt, --ras and --type are for single messages; " +
                                     input.capture + " is a capture");
        }
        return decodeCapture(options, input.capture);
    }
    Output output(options.json);
    for (const Reading& reading : readAll(options, input.octets)) {
        output.add(reading, {{"offset", reading.octets.data() - input.octets.data()}});
    }
    return output.finish();
}

} // namespace

void addDecodeCommand(CLI::App& app, int& exitStatus) {
    auto* command = app.add_subcommand("decode", "Print a message as a tree of its fields");
    const auto options = std::make_shared<DecodeOptions>();
    command
        ->add_option("message", options->words,
                     "The message in hexadecimal, or a file: a capture, hexadecimal text or the "
                     "octets themselves; - reads standard input")
        ->required();
    auto* type = command->add_option(
        "--type", options->type,
        "What the message is, as H245OpenLogicalChannel. Without it the three top-level types are "
        "tried and the one that fits best is printed");
    auto* tpkt =
        command->add_flag("--tpkt", options->tpkt,
                          "The octets are of a TCP stream: TPKT headers, and Q.931 headers "
                          "before H.225.0 messages. Not needed where the headers' lengths fit");
    command->add_flag("--ras", options->ras, "The octets are a UDP datagram of the RAS channel")
        ->excludes(tpkt)
        ->excludes(type);
    tpkt->excludes(type);
    command->add_flag("--json", options->json,
                      "Print an array with an object for each message; offsets count octets of the "
                      "input, bitOffset bits of the message");
    command->callback([options, &exitStatus] { exitStatus = run(*options) ? 0 : exitFaults; });
}

} // namespace cli
