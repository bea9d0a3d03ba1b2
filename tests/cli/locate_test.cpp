// The locate command and verify --places: what they take, what they print, and what they say of
// messages and lists that are wrong.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/run_command.h"
#include "tests/support/scratch_path.h"

namespace cli {
namespace {

// An OpenLogicalChannelAck with media at 10.0.0.5:5000 and control at 10.0.0.5:5001.
const std::string ackHex = "22c000640280135c00000a0000051388000a0000051389010100";
// A GatekeeperRequest that ends behind its address.
const std::string cutHex = "022056bd060008914a0007000a00000506b722c0";
const std::string parameters = "response.openLogicalChannelAck.forwardMultiplexAckParameters."
                               "h2250LogicalChannelAckParameters.";
const std::string media = parameters + "mediaChannel.unicastAddress.iPAddress";
const std::string control = parameters + "mediaControlChannel.unicastAddress.iPAddress";

std::string sample(const char* name) {
    return std::string(H323NAT_SAMPLES) + "/" + name + ".pcap";
}

TEST(Locate, PrintsAlignedPlaces) {
    const Outcome outcome = run({"locate", ackHex});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output,
              "  10  10.0.0.5:5000  " + media + "\n  17  10.0.0.5:5001  " + control + "\n");
    const Outcome captures = run({"locate", sample("fast-h245"), sample("gk-routed")});
    EXPECT_EQ(captures.status, 0) << captures.errors;
    for (const char* line :
         {"fast-h245.pcap  frame 4  0.000938  10.0.0.5:51434 → 203.0.113.9:1720\n"
          "   75  203.0.113.9:1720  h323-uu-pdu.h323-message-body.setup.destCallSignalAddress.",
          "\n  104  10.0.0.5:51434    h323-uu-pdu.h323-message-body.setup.sourceCallSignalAddress.",
          ".setup.fastStart[3].forwardLogicalChannelParameters.multiplexParameters."
          "h2250LogicalChannelParameters.mediaControlChannel.unicastAddress.iPAddress\n",
          "gk-routed.pcap  frame 1  "}) {
        EXPECT_NE(captures.output.find(line), std::string::npos) << line << captures.output;
    }
}

TEST(Locate, TellsPrograms) {
    const auto objects = nlohmann::json::parse(run({"locate", "--json", sample("gk-in")}).output);
    ASSERT_FALSE(objects.empty());
    const auto& first = objects[0];
    EXPECT_EQ(first["frame"], 1);
    EXPECT_EQ(first["type"], "H225RasMessage");
    EXPECT_EQ(first["status"], "complete");
    ASSERT_EQ(first["places"].size(), 1U);
    EXPECT_EQ(first["places"][0]["path"], "gatekeeperRequest.rasAddress.ipAddress");
    EXPECT_EQ(first["places"][0]["port"], 1719);

    // In a frame the offsets of places count from where the message begins.
    const auto framed =
        nlohmann::json::parse(run({"locate", "--json", "0300001e" + ackHex}).output);
    EXPECT_EQ(framed[0]["offset"], 4);
    EXPECT_EQ(framed[0]["places"][1]["offset"], 17);
    EXPECT_EQ(framed[0]["places"][1]["address"], "10.0.0.5");
}

TEST(Locate, SaysWhatIsWrong) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* output;
        const char* errors;
    };
    const Case cases[] = {
        {{"--type=RasMessage", cutHex}, exitFaults, "10.0.0.5:1719", "no sense"},
        {{"ff"}, exitUnusable, "", "--type"},
        {{"--type", "H225Setup_UUIE", "00"}, exitUnusable, "", "the types are H225H323_User"},
        {{sample("tun"), "no/such/file"}, exitUnusable, "", "no/such/file cannot be read"},
        {{"--ras", sample("tun")}, exitUnusable, "", "is a capture"},
    };
    for (const Case& one : cases) {
        std::vector<std::string> arguments = one.arguments;
        arguments.insert(arguments.begin(), "locate");
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, one.status) << one.errors;
        EXPECT_NE(outcome.output.find(one.output), std::string::npos) << outcome.output;
        EXPECT_NE(outcome.errors.find(one.errors), std::string::npos) << outcome.errors;
    }
}

TEST(VerifyPlaces, PassesTheVectors) {
    const std::string folder = H323NAT_VECTORS;
    const Outcome outcome =
        run({"verify", "--places", folder + "/addresses.txt", folder + "/addresses-captured.txt"});
    EXPECT_EQ(outcome.output, "1570 passed, 0 failed\n");
    EXPECT_EQ(outcome.status, 0);
}

// A check that cannot fail would pass everything above.
TEST(VerifyPlaces, NamesWhatIsWrong) {
    const std::string type = "H245MultimediaSystemControlMessage ";
    const std::string lines[][2] = {
        {media + "=10", "found " + control + "=17, which is not listed"},
        {media + "=10," + control + "=18", "lists " + control + "=18, found " + control + "=17"},
        {media + "=10," + control + "=17,x=30", "lists x=30, found nothing more"},
        {"-", "found " + media + "=10"},
        {"", "expected PATH=OFFSET"},
    };
    const std::string path = scratchPath("places.txt");
    {
        std::ofstream file(path);
        for (const auto& [list, fault] : lines) {
            file << type << ackHex << ' ' << list << '\n';
        }
        file << "H225RasMessage " << cutHex << " gatekeeperRequest.rasAddress.ipAddress=12\n"
             << "H225Setup_UUIE 00 -\n";
    }
    const Outcome outcome = run({"verify", "--places", path});
    std::filesystem::remove(path);
    EXPECT_EQ(outcome.status, exitFaults);
    for (const auto& [list, fault] : lines) {
        EXPECT_NE(outcome.output.find(fault), std::string::npos) << fault << outcome.output;
    }
    EXPECT_NE(outcome.output.find("no sense"), std::string::npos);
    EXPECT_NE(outcome.output.find("not looked up in this type"), std::string::npos);
    EXPECT_NE(outcome.output.find("\n0 passed, 7 failed\n"), std::string::npos) << outcome.output;
}

} // namespace
} // namespace cli
