// The subcommands as a user runs them: output, exit status, and errors that name the place.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "tests/support/scratch_path.h"

namespace cli {
namespace {

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

Outcome run(std::vector<std::string> arguments) {
    CLI::App app("", "h323nat");
    Outcome outcome;
    addDecodeCommand(app, outcome.status);
    addVerifyCommand(app, outcome.status);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::reverse(arguments.begin(), arguments.end()); // CLI11 takes them last first
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError&) {
        outcome.status = exitUnusable;
    } catch (const std::exception& error) {
        outcome.status = exitUnusable;
        std::cerr << error.what();
    }
    outcome.output = testing::internal::GetCapturedStdout();
    outcome.errors = testing::internal::GetCapturedStderr();
    return outcome;
}

Outcome verify(const std::string& lines, const std::vector<std::string>& options = {}) {
    const std::string path = scratchPath("lines.txt");
    std::ofstream(path) << lines;
    std::vector<std::string> arguments = {"verify", path};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Outcome outcome = run(arguments);
    std::filesystem::remove(path);
    return outcome;
}

TEST(Decode, PrintsATree) {
    const Outcome outcome = run({"decode", "--type", "H245TransportAddress", "000a0000", "01138c"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "H245TransportAddress: unicastAddress\n"
                              "  unicastAddress: iPAddress\n"
                              "    network: 0a000001 (10.0.0.1)\n"
                              "    tsapIdentifier: 5004\n");
}

TEST(Decode, GuessesTheTopLevelTypeAndReadsFrames) {
    const std::string empty = "0380060008914a0002020120110000000000000000000000000000000000";
    const Outcome guessed = run({"decode", empty});
    EXPECT_EQ(guessed.output.substr(0, 25), "H225H323_UserInformation\n");
    EXPECT_NE(guessed.output.find("protocolIdentifier: 0.0.8.2250.0.2\n"), std::string::npos);

    // TPKT, Q.931 with a bearer capability before the User-user element; then an H.245 message.
    const std::string q931 = "08020001050403808090"
                             "7e001f05" +
                             empty;
    const Outcome framed = run({"decode", "--tpkt", "03000030" + q931 + "030000086d400139"});
    EXPECT_EQ(framed.status, 0) << framed.errors;
    EXPECT_NE(framed.output.find("H225H323_UserInformation\n"), std::string::npos);
    EXPECT_NE(framed.output.find("H245MultimediaSystemControlMessage: indication\n"),
              std::string::npos);
}

TEST(Decode, EscapesTextOfTheMessage) {
    // alphanumeric, GeneralString: ESC, a quote, 'A'.
    const Outcome outcome = run({"decode", "--type", "H245UserInputIndication", "40031b2241"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.output.find("\"\\u001b\\u0022A\""), std::string::npos) << outcome.output;
}

TEST(Decode, SaysWhatIsWrong) {
    EXPECT_NE(run({"decode", "--type", "H245Nothing", "00"}).errors.find("H245Nothing"),
              std::string::npos);
    EXPECT_NE(run({"decode", "0g"}).errors.find("'g' at character 2"), std::string::npos);
    EXPECT_NE(run({"decode", "000"}).errors.find("odd number"), std::string::npos);
    EXPECT_NE(run({"decode", "--tpkt", "0300ffff08"}).errors.find("at octet 0"), std::string::npos);
    EXPECT_NE(run({"decode", "--tpkt", "0300000d08020000057e00ff05"}).errors.find("User-user"),
              std::string::npos);
    const Outcome cut = run({"decode", "--ras", "0e80"});
    EXPECT_EQ(cut.status, exitFaults);
    EXPECT_NE(cut.errors.find("not a H225RasMessage: status -"), std::string::npos) << cut.errors;
}

TEST(Verify, CountsAndNamesLines) {
    const Outcome outcome = verify("# comment\n"
                                   "H225TransportAddress 00c0a8010206b8\n"
                                   "\n"
                                   "H225TransportAddress 00c0a80102\n"
                                   "H225TransportAddress 00c0a8010206b8 00c0a8010206b9\n"
                                   "H225Nothing 00\n"
                                   "H225TransportAddress xy\n"
                                   "H225TransportAddress\n");
    EXPECT_EQ(outcome.status, exitFaults);
    for (const char* text :
         {".txt:4: H225TransportAddress: decoding gives -1 (the data end within a field",
          ".txt:5: H225TransportAddress: encodes to 7 octets of 7, first difference at octet 6",
          "octet 6: expected b9, found b8", ".txt:6: H225Nothing: no type has this name",
          ".txt:7: 'x' at character 1 is not a hexadecimal digit",
          ".txt:8: expected TYPE HEX, found only \"H225TransportAddress\"",
          "\n1 passed, 5 failed\n"}) {
        EXPECT_NE(outcome.output.find(text), std::string::npos) << text << "\nin\n"
                                                                << outcome.output;
    }
}

TEST(Verify, AThirdFieldOrAStatusCanBeExpected) {
    const std::string cutBitmap = "H245H2250LogicalChannelAckParameters 80040180 800c0180\n";
    EXPECT_EQ(verify(cutBitmap).output, "1 passed, 0 failed\n");

    const Outcome refused = verify("H225TransportAddress 00c0a80102\n"
                                   "H225TransportAddress 00c0a8010206b8\n",
                                   {"--expect-status=-1"});
    EXPECT_EQ(refused.status, exitFaults);
    EXPECT_NE(refused.output.find("1 passed, 1 failed"), std::string::npos);
    EXPECT_EQ(run({"verify", "/nonexistent"}).status, exitUnusable);
}

} // namespace
} // namespace cli
