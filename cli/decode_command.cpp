#include <cstdint>
#include <iostream>
#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "H.323/tree_printer.h"
#include "cli/commands.h"
#include "cli/framing.h"
#include "cli/hex.h"
#include "cli/status_text.h"

namespace cli {
namespace {

constexpr const char* topLevelTypes[] = {"H225H323_UserInformation", "H225RasMessage",
                                         "H245MultimediaSystemControlMessage"};

struct DecodeOptions {
    std::vector<std::string> words;
    std::string type;
    bool tpkt = false;
    bool ras = false;
};

std::vector<uint8_t> readOctets(const DecodeOptions& options) {
    std::string text;
    for (const std::string& word : options.words) {
        text += word == "-" ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : word;
    }
    return fromHex(text);
}

const TypeDescription& typeNamed(const std::string& name) {
    const TypeDescription* type = findType(name);
    if (type == nullptr) {
        throw std::runtime_error("no type is called \"" + name +
                                 "\"; names look like H225Setup_UUIE or H245OpenLogicalChannel");
    }
    return *type;
}

/// How well octets read as a type: 3 when encoding gives the same octets again, 2 when all of them
/// were read, 1 when they decode, 0 when not.
int fitness(const TypeDescription& type, std::span<const uint8_t> octets) {
    MessageValue value(type);
    if (value.decode(octets) != PER_OK) {
        return 0;
    }
    std::vector<uint8_t> again;
    if (value.encode(&again) == PER_OK &&
        std::equal(again.begin(), again.end(), octets.begin(), octets.end())) {
        return 3;
    }
    return value.consumed() == octets.size() ? 2 : 1;
}

bool print(const TypeDescription& type, std::span<const uint8_t> octets) {
    MessageValue value(type);
    const int32_t status = value.decode(octets);
    if (status != PER_OK) {
        std::cerr << "h323nat: not a " << type.name << ": status " << statusText(status)
                  << " near octet " << value.consumed() << '\n';
        return false;
    }
    std::cout << printTree(type, value.record(), type.name);
    if (value.consumed() < octets.size()) {
        std::cout << "(" << octets.size() - value.consumed()
                  << " more octets: " << toHex(octets.subspan(value.consumed())) << ")\n";
    }
    return true;
}

bool printBestGuess(std::span<const uint8_t> octets) {
    const TypeDescription* best = nullptr;
    int bestFitness = 0;
    for (const char* name : topLevelTypes) {
        const TypeDescription& type = typeNamed(name);
        const int found = fitness(type, octets);
        if (found > bestFitness) {
            best = &type;
            bestFitness = found;
        }
    }
    if (best != nullptr) {
        return print(*best, octets);
    }
    for (const char* name : topLevelTypes) {
        print(typeNamed(name), octets);
    }
    return false;
}

bool printFramed(std::span<const uint8_t> octets) {
    const std::vector<FramedMessage> messages = messagesInTpkts(octets);
    bool good = true;
    for (const FramedMessage& message : messages) {
        good = print(typeNamed(message.type), message.encoding) && good;
    }
    if (messages.empty()) {
        std::cerr << "h323nat: no message in these octets (a Q.931 message without User-user "
                     "element holds none)\n";
    }
    return good && !messages.empty();
}

bool run(const DecodeOptions& options) {
    const std::vector<uint8_t> octets = readOctets(options);
    if (options.tpkt) {
        return printFramed(octets);
    }
    if (options.ras) {
        return print(typeNamed("H225RasMessage"), octets);
    }
    return options.type.empty() ? printBestGuess(octets) : print(typeNamed(options.type), octets);
}

} // namespace

void addDecodeCommand(CLI::App& app, int& exitStatus) {
    auto* command = app.add_subcommand("decode", "Print a message as a tree of its fields");
    const auto options = std::make_shared<DecodeOptions>();
    command->add_option("hex", options->words, "The message in hexadecimal; - reads standard input")
        ->required();
    auto* type = command->add_option(
        "--type", options->type,
        "What the message is, as H245OpenLogicalChannel. Without it the three top-level types are "
        "tried and the one that fits best is printed");
    auto* tpkt =
        command->add_flag("--tpkt", options->tpkt,
                          "The octets are of a TCP stream: TPKT headers, and Q.931 headers "
                          "before H.225.0 messages");
    command->add_flag("--ras", options->ras, "The octets are a UDP datagram of the RAS channel")
        ->excludes(tpkt)
        ->excludes(type);
    tpkt->excludes(type);
    command->callback([options, &exitStatus] { exitStatus = run(*options) ? 0 : exitFaults; });
}

} // namespace cli
