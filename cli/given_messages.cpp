#include "cli/given_messages.h"

#include <algorithm>
#include <span>
#include <stdexcept>

#include "asn1per/status.h"
#include "cli/capture_messages.h"
#include "cli/message_input.h"
#include "cli/terminal.h"
#include "gateway/capture_time.h"
#include "gateway/endpoint.h"
#include "nat/q931.h"
#include "report/markup.h"
#include "tree/message_tree.h"

namespace cli {
namespace {

constexpr const char* topLevelTypes[] = {"H225H323_UserInformation", "H225RasMessage",
                                         "H245MultimediaSystemControlMessage"};

/// Smaller is better: whole before cut or too long, then what is read without anything odd.
uint64_t misfit(const tree::DecodedMessage& message, size_t octets) {
    constexpr uint64_t tooLong = uint64_t{1} << 32;
    return (message.octetsRead < octets ? tooLong : 0) + message.oddities;
}

std::vector<FramedMessage> guess(std::span<const uint8_t> octets) {
    std::vector<FramedMessage> all;
    const char* best = nullptr;
    uint64_t leastMisfit = 0;
    for (const char* type : topLevelTypes) {
        all.push_back({type, octets});
        const auto message = tree::decodeMessage(*tree::findMessageType(type), octets);
        const uint64_t fit = misfit(message, octets.size());
        if (message.status == PER_OK && (best == nullptr || fit < leastMisfit)) {
            best = type;
            leastMisfit = fit;
        }
    }
    return best == nullptr ? all : std::vector<FramedMessage>{{best, octets}};
}

/// TPKT headers whose lengths lead from one to the next and to the end.
bool areFrames(std::span<const uint8_t> octets) {
    size_t cursor = 0;
    while (octets.size() - cursor > tpktHeader && beginsTpkt(octets.subspan(cursor))) {
        const size_t length = tpktLength(&octets[cursor]);
        if (length <= tpktHeader || length > octets.size() - cursor) {
            return false;
        }
        cursor += length;
    }
    return cursor > 0 && cursor == octets.size();
}

void visitOctets(const GivenOptions& options, std::span<const uint8_t> octets,
                 const std::function<void(GivenMessage)>& visit) {
    if (octets.empty()) {
        throw std::runtime_error("no octets to read");
    }
    const bool isUntyped = options.type.empty() && !options.ras;
    if (!options.tpkt && !(isUntyped && areFrames(octets))) {
        const std::string type = options.ras ? "H225RasMessage" : options.type;
        visit({isUntyped ? guess(octets) : std::vector<FramedMessage>{{type, octets}},
               "",
               {{"offset", 0}}});
        return;
    }
    const std::vector<FramedMessage> messages = messagesInTpkts(octets);
    if (messages.empty()) {
        throw std::runtime_error("no message in these octets (a Q.931 message without User-user "
                                 "element holds none)");
    }
    for (const FramedMessage& message : messages) {
        visit({{message}, "", {{"offset", message.encoding.data() - octets.data()}}});
    }
}

void visitCapture(const GivenOptions& options, const std::string& path,
                  const std::function<void(GivenMessage)>& visit) {
    if (options.tpkt || options.ras || !options.type.empty()) {
        throw std::runtime_error("--tpkt, --ras and --type are for single messages; " + path +
                                 " is a capture");
    }
    CaptureMessages messages(path);
    CapturedMessage message;
    bool some = false;
    while (messages.next(message)) {
        some = true;
        visit({{{message.type, message.encoding}},
               placeText(message),
               {{"frame", message.frame},
                {"time", gateway::timestampText(message.time)},
                {"source", gateway::toText(message.source)},
                {"destination", gateway::toText(message.destination)}}});
    }
    if (!some) {
        complain(path + " holds no H.323 message");
    }
}

/// Files without any message are named on the error output.
void forEachMessage(const GivenOptions& options,
                    const std::function<void(const GivenMessage&)>& visit) {
    const std::vector<MessageInput> inputs = readMessageInputs(options.words);
    for (const MessageInput& input : inputs) {
        const auto visitOne = [&](GivenMessage message) {
            if (inputs.size() > 1) {
                message.heading =
                    printable(input.file) + (message.heading.empty() ? "" : "  ") + message.heading;
                nlohmann::ordered_json origin{{"file", report::validText(input.file)}};
                origin.update(message.origin);
                message.origin = std::move(origin);
            }
            visit(message);
        };
        if (input.isCapture) {
            visitCapture(options, input.file, visitOne);
            continue;
        }
        try {
            visitOctets(options, input.octets, visitOne);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error((input.file.empty() ? "" : input.file + ": ") + error.what());
        }
    }
}

} // namespace

void addGivenOptions(CLI::App& command, GivenOptions& options, const std::string& offsets) {
    command
        .add_option("message", options.words,
                    "The message in hexadecimal, or files: captures, hexadecimal text or the "
                    "octets themselves; - reads standard input")
        ->required();
    auto* type = command.add_option(
        "--type", options.type,
        "What the message is, as H245OpenLogicalChannel. Without it the three top-level types are "
        "tried and the one that fits best is taken");
    auto* tpkt =
        command.add_flag("--tpkt", options.tpkt,
                         "The octets are of a TCP stream: TPKT headers, and Q.931 headers "
                         "before H.225.0 messages. Not needed where the headers' lengths fit");
    command.add_flag("--ras", options.ras, "The octets are a UDP datagram of the RAS channel")
        ->excludes(tpkt)
        ->excludes(type);
    tpkt->excludes(type);
    command.add_flag("--json", options.json,
                     "Print an array with an object for each message; " + offsets);
}

bool reportMessages(const GivenOptions& options,
                    const std::function<bool(const GivenMessage&, JsonArray*)>& report) {
    JsonArray array;
    bool good = true;
    size_t count = 0;
    try {
        forEachMessage(options, [&](const GivenMessage& message) {
            good = report(message, options.json ? &array : nullptr) && good;
            ++count;
        });
    } catch (const std::runtime_error& error) {
        if (count == 0) {
            throw;
        }
        complain(error.what());
        good = false;
    }
    if (options.json) {
        array.finish();
    }
    return good && count > 0;
}

} // namespace cli
