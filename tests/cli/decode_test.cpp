// The decode command: what it takes, what it prints, and what it says of messages that are wrong.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/hex.h"
#include "tests/cli/run_command.h"
#include "tests/support/scratch_path.h"

namespace cli {
namespace {

const std::string informationHex = "0380060008914a0002020120110000000000000000000000000000000000";
// By an independent encoder: one H.264 capability.
const std::string videoHex =
    "0220010600088175000d008000000c001960000700088171000001401e000302914002a200470032006c";

struct Example {
    const char* what;
    std::vector<std::string> arguments;
    const char* output; // each line of it is in what is printed
    const char* errors;
};

bool hasLines(const std::string& text, const std::string& lines) {
    std::istringstream wanted(lines);
    for (std::string line; std::getline(wanted, line);) {
        if (text.find(line) == std::string::npos) {
            return false;
        }
    }
    return true;
}

const Example readable[] = {
    {"fields and addresses",
     {"--type", "H245TransportAddress", "000a0000", "01138c"},
     "H245TransportAddress: unicastAddress\n"
     "  unicastAddress: iPAddress\n"
     "    network: 0a000001 (10.0.0.1)\n"
     "    tsapIdentifier: 5004",
     ""},
    {"a guessed type", {informationHex}, "H225H323_UserInformation", ""},
    {"the name in the module", {"--type", "TransportAddress", "00c0a8010206b8"}, "port: 1720", ""},
    {"a capability of today",
     {videoHex},
     "H245MultimediaSystemControlMessage: request\n"
     "receiveVideoCapability: genericVideoCapability\n"
     "standard: 0.0.8.241.0.0.1\n"
     "unsignedMin: 108",
     ""},
    {"frames, which are found without being told",
     {"03000030080200010504038080907e001f05" + informationHex + "030000086d400139"},
     "H225H323_UserInformation\n"
     "H245MultimediaSystemControlMessage: indication\n"
     "alphanumeric: \"9\"",
     ""},
    {"text that is not printable",
     {"--type", "H245UserInputIndication", "40031b2241"},
     "\"\\u001b\\u0022A\"",
     ""},
    {"an alternative of a later version",
     {"--type", "H225ReleaseCompleteReason", "bf0100"},
     "H225ReleaseCompleteReason: unknown alternative 64",
     ""},
    {"a member that is a keyword of C++",
     {"--type", "H235AuthenticationBES", "00"},
     ": default",
     ""},
    {"a signal as the runtime aligns it",
     {"--type", "H245UserInputIndication", "81044033fffe"},
     "signalType: \"3\"",
     ""},
    {"a signal as X.691 has it",
     {"6d810446a000c7"},
     "signalType: \"5\"\n"
     "duration: 200",
     "warning: The character of a user-input signal is not aligned"},
};

TEST(Decode, Prints) {
    for (const Example& example : readable) {
        std::vector<std::string> arguments = example.arguments;
        arguments.insert(arguments.begin(), "decode");
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << example.what << outcome.errors;
        EXPECT_TRUE(hasLines(outcome.output, example.output)) << example.what << "\n"
                                                              << outcome.output;
        EXPECT_EQ(outcome.errors.empty(), example.errors[0] == 0) << example.what << outcome.errors;
        EXPECT_NE(outcome.errors.find(example.errors), std::string::npos) << example.what;
    }
}

const Example wrong[] = {
    {"a type", {"--type", "H245Nothing", "00"}, "", "H245Nothing"},
    {"a digit", {"0g"}, "", "'g' at character 2"},
    {"half an octet", {"000"}, "", "odd number"},
    {"a file", {"no/such/file"}, "", "no file has this name"},
    {"a frame's length", {"--tpkt", "0300ffff08"}, "", "at octet 0"},
    {"an element's length", {"--tpkt", "0300000d08020000057e00ff05"}, "", "User-user"},
    {"a cut message", {"--ras", "0e80"}, "", "not a H225RasMessage: status -"},
    {"the place inside an addition, from the start of the message",
     {"--type", "H245MultimediaSystemControlMessage", "6d810166"},
     "",
     "near octet 4, in indication.userInput.signal.signalType"},
};

TEST(Decode, SaysWhatIsWrong) {
    for (const Example& example : wrong) {
        std::vector<std::string> arguments = example.arguments;
        arguments.insert(arguments.begin(), "decode");
        const Outcome outcome = run(arguments);
        EXPECT_NE(outcome.status, 0) << example.what;
        EXPECT_NE(outcome.errors.find(example.errors), std::string::npos)
            << example.what << ": " << outcome.errors;
    }
}

TEST(Decode, TellsProgramsThePlaces) {
    const Outcome outcome =
        run({"decode", "--json", "0300000e" + std::string("6d810446a000c7000000")});
    const auto messages = nlohmann::json::parse(outcome.output);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0]["type"], "H245MultimediaSystemControlMessage");
    EXPECT_EQ(messages[0]["offset"], 4);
    EXPECT_EQ(messages[0]["octetsRead"], 7);
    EXPECT_EQ(messages[0]["warnings"].size(), 1U);
    // Two octets of duration behind three of length, padding and the character.
    const auto& signal = messages[0]["tree"]["children"][0]["children"][0]["children"][0];
    EXPECT_EQ(signal["name"], "signal");
    EXPECT_EQ(signal["children"][1]["value"], 200);
    EXPECT_EQ(signal["children"][1]["bitOffset"], 40);
    EXPECT_EQ(signal["children"][1]["bitLength"], 16);
}

TEST(Decode, ReadsFilesOfEveryKind) {
    const std::string path = scratchPath("message");
    const auto fromFile = [&](const std::string& content) {
        std::ofstream(path, std::ios::binary) << content;
        return run({"decode", path}).output;
    };
    const std::string expected = run({"decode", videoHex}).output;
    const std::vector<uint8_t> octets = fromHex(videoHex);
    EXPECT_EQ(fromFile(std::string(octets.begin(), octets.end())), expected);
    EXPECT_EQ(fromFile(videoHex.substr(0, 10) + "\n" + videoHex.substr(10) + "\n"), expected);
    std::filesystem::remove(path);
}

// The messages of each capture, as many as an independent dissector finds, all readable.
TEST(Decode, ReadsCaptures) {
    const std::pair<const char*, size_t> captures[] = {
        {"fast-h245", 6}, {"fast-tun", 5},    {"gk-direct", 15}, {"gk-routed", 28},
        {"h245", 19},     {"in-fast-tun", 5}, {"in-h245", 19},
    };
    for (const auto& [name, count] : captures) {
        const std::string path = std::string(H323NAT_SAMPLES) + "/" + name + ".pcap";
        const Outcome outcome = run({"decode", "--json", path});
        EXPECT_EQ(outcome.status, 0) << name << outcome.errors;
        EXPECT_EQ(nlohmann::json::parse(outcome.output).size(), count) << name;
    }
    const Outcome text = run({"decode", std::string(H323NAT_SAMPLES) + "/fast-tun.pcap"});
    EXPECT_TRUE(hasLines(text.output, "frame 4  \n"
                                      "fastStart: \n"
                                      "H245OpenLogicalChannel\n"
                                      "mediaControlChannel: unicastAddress"))
        << text.output;
}

} // namespace
} // namespace cli
