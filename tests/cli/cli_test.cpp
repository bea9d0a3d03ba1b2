// The subcommands as a user runs them: output, exit status, and errors that name the place.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "tests/cli/run_command.h"
#include "tests/support/scratch_path.h"

namespace cli {
namespace {

Outcome verify(const std::string& lines, const std::vector<std::string>& options = {}) {
    const std::string path = scratchPath("lines.txt");
    std::ofstream(path) << lines;
    std::vector<std::string> arguments = {"verify", path};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Outcome outcome = run(arguments);
    std::filesystem::remove(path);
    return outcome;
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
