// What h323nat says to command lines that it cannot follow, and when it says that all went well.
#include "cli/commands.h"
#include "tests/cli/run_program.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing_cli::Outcome;
using testing_cli::runProgram;

const std::string sample = std::string(H323NAT_SAMPLES) + "/h245.pcap";
const std::string inbound = std::string(H323NAT_SAMPLES) + "/in-h245.pcap";
const std::vector<std::string> goodReplay = {"replay",   sample,        "-o",       "/dev/null",
                                             "--inside", "10.0.0.0/24", "--public", "203.0.113.1"};

TEST(CommandLine, FaultsAreNamedWithAWayOn) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    };
    const std::string output = scratchPath("out.pcap");
    const auto folder = std::filesystem::path(output).parent_path();
    const std::string otherSpelling =
        (folder / "." / std::filesystem::path(output).filename()).string();
    const std::string empty = scratchPath("empty.txt");
    std::ofstream(empty) << "# nothing but a remark\n";
    const std::string noFrames = scratchPath("none.pcap");
    std::filesystem::copy_file(sample, noFrames);
    std::filesystem::resize_file(noFrames, 24);
    for (const Case& c :
         {Case{{"repaly"}, cli::exitUnusable, "no command repaly; did you mean replay?\n"},
          Case{{"xyzzy"}, cli::exitUnusable, "no command xyzzy\nh323nat --help lists"},
          Case{{"--versoin"}, cli::exitUnusable, "no option --versoin; did you mean --version?"},
          Case{{"replay", sample, "--inside=10.0.0.0/24", "--pubilc=1.2.3.4"},
               cli::exitUnusable,
               "no option --pubilc; did you mean --public?\nh323nat replay --help lists"},
          Case{{"replay", sample}, cli::exitUnusable, "--inside is required"},
          Case{{"replay", sample, "-o", output, "--public", "1.2.3.4", "--inside", "10/8"},
               cli::exitUnusable,
               "--inside: 10/8 is no IPv4 network such as 10.0.0.0/24"},
          Case{
              {"replay", sample, "-o", output, "--public", "1.2.3.4", "--inside", "192.168.7.0/24"},
              cli::exitFaults,
              "no packet comes from or goes to a host of --inside 192.168.7.0/24; name"},
          Case{{"replay", sample, "-o", output, "--public", "0.0.0.0", "--inside", "10.0.0.0/8"},
               cli::exitUnusable,
               "--public: 0.0.0.0 is no IPv4 address of a host"},
          Case{{"replay", sample, "-o", output, "--public", "1.2.3.4", "--inside", "10.0.0.0/8",
                "--publish", "224.0.0.1"},
               cli::exitUnusable,
               "--publish: 224.0.0.1 is no IPv4 address of a host"},
          Case{{"replay", sample, "--inside"}, cli::exitUnusable, "--inside needs a value NETWORK"},
          Case{{"replay", sample, "-o", "a", "-o", "b"},
               cli::exitUnusable,
               "--output is given more than once; it takes one value"},
          Case{{"replay", sample, "--report", output, "--inside", "10.0.0.0/8", "--public",
                "1.2.3.4", "-o", otherSpelling},
               cli::exitUnusable,
               "--report needs a file of its own"},
          Case{{"replay", sample, "-o", output, "--inside", "10.0.0.0/8", "--public", "1.2.3.4",
                "--scope", "full", "--strict"},
               cli::exitUnusable,
               "--strict means --scope listed"},
          Case{{"replay", inbound, "-o", output, "--inside", "10.0.0.0/8", "--public", "1.2.3.4"},
               0,
               "name the host that takes the calls: --publish ADDRESS"},
          Case{{"replay", "-", "-o", output, "--inside", "10.0.0.0/8", "--public", "1.2.3.4"},
               cli::exitUnusable,
               "-: not a pcap or pcapng capture"},
          Case{{"replay", noFrames, "-o", output, "--inside", "10.0.0.0/8", "--public", "1.2.3.4"},
               cli::exitFaults,
               "none.pcap holds no packet"},
          Case{{"decode", "/nonexistent.pcap"},
               cli::exitUnusable,
               "no file has this name: /nonexistent.pcap"},
          Case{{"decode", "/dev/null"}, cli::exitUnusable, "/dev/null: no octets to read\n"},
          Case{{"decode", empty}, cli::exitUnusable, "empty.txt: '#' at character 1 is not"},
          Case{{"locate", ""}, cli::exitUnusable, "h323nat: no octets to read\n"},
          Case{{"decode", "\x1b[31m"}, cli::exitUnusable, "'?' at character 1 is not"},
          Case{{"verify", empty, "--expect-status", "many"},
               cli::exitUnusable,
               "--expect-status cannot be many"},
          Case{{"verify", "/"}, cli::exitUnusable, "/: cannot be read"},
          Case{{"verify", empty}, cli::exitFaults, "empty.txt has no line to check"},
          Case{{}, cli::exitUnusable, "subcommand is required"}}) {
        const Outcome outcome = runProgram(c.arguments);
        EXPECT_EQ(outcome.status, c.status) << c.message;
        EXPECT_EQ(outcome.errors.find("h323nat: "), 0U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(c.message), std::string::npos) << outcome.errors;
    }
    std::filesystem::remove(output);
    std::filesystem::remove(empty);
    std::filesystem::remove(noFrames);
}

TEST(CommandLine, OutputThatCannotBeWrittenIsNoSuccess) {
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full here";
    }
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"decode", sample}, goodReplay}) {
        const Outcome outcome = runProgram(arguments, "/dev/full");
        EXPECT_EQ(outcome.status, cli::exitUnusable) << arguments[0];
        EXPECT_EQ(outcome.errors.find("h323nat: standard output cannot be written"), 0U)
            << outcome.errors;
    }
}

// Whoever closes a stream finds none of its text in the files that are written.
TEST(CommandLine, ClosedStreamsWriteIntoNoFile) {
    const std::string output = scratchPath("closed.pcap");
    for (const std::string closed : {">&-", "2>&-"}) {
        const std::string line = "'" H323NAT_PROGRAM "' replay - --inside 10.0.0.0/24"
                                 " --public 203.0.113.1 --publish 10.0.0.5 -o" +
                                 testing_cli::shellWord(output) + " <" +
                                 testing_cli::shellWord(sample) +
                                 (closed[0] == '2' ? " >/dev/null " : " ") + closed;
        const int status = std::system(line.c_str());
        EXPECT_EQ(WEXITSTATUS(status), closed[0] == '2' ? 0 : cli::exitUnusable) << line;
        EXPECT_EQ(std::filesystem::file_size(output), std::filesystem::file_size(sample)) << line;
    }
    std::filesystem::remove(output);
}

// A damaged capture ends the list that a program reads.
TEST(CommandLine, WhatWasReadBeforeADamageIsWhole) {
    const std::string cut = scratchPath("cut.pcap");
    std::filesystem::copy_file(sample, cut);
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 10);
    for (const char* command : {"decode", "locate"}) {
        const Outcome outcome = runProgram({command, "--json", cut});
        EXPECT_EQ(outcome.status, cli::exitFaults);
        EXPECT_TRUE(outcome.output.ends_with("\n]\n")) << outcome.output;
        EXPECT_NE(outcome.errors.find("cut.pcap: frame "), std::string::npos) << outcome.errors;
    }
    std::filesystem::remove(cut);
}

TEST(CommandLine, HelpTellsDefaults) {
    EXPECT_NE(runProgram({"replay", "--help"}).output.find("=full"), std::string::npos);
}

// script(1) is a terminal.
TEST(CommandLine, ColoursAreForTerminals) {
    EXPECT_EQ(runProgram(goodReplay).output.find('\033'), std::string::npos);
    if (std::system("command -v script >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "no script(1) here";
    }
    std::string command = testing_cli::shellWord(H323NAT_PROGRAM);
    for (const std::string& argument : goodReplay) {
        command += testing_cli::shellWord(argument);
    }
    const std::string typescript = scratchPath("typescript");
    for (const std::string setting : {"", "NO_COLOR=1 "}) {
        std::string line = "TERM=xterm script -qec \"";
        line.append(setting).append(command).append("\" /dev/null >");
        line.append(testing_cli::shellWord(typescript)).append(" </dev/null");
        EXPECT_EQ(std::system(line.c_str()), 0);
        const bool coloured =
            testing_cli::contents(typescript).find("\033[32m") != std::string::npos;
        EXPECT_EQ(coloured, setting.empty()) << setting;
    }
    std::filesystem::remove(typescript);
}

// The completions are the program's own words.
TEST(CommandLine, BashCompletes) {
    if (std::system("command -v bash >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "no bash here";
    }
    struct Case {
        const char* words;
        const char* completions;
    };
    const std::string found = scratchPath("completions");
    for (const Case& c : {Case{"re", "replay"}, Case{"--ver", "--version"},
                          Case{"replay --p", "--public --publish"},
                          Case{"replay --scope l", "listed"}, Case{"decode --js", "--json"}}) {
        const std::string line =
            "bash -c '. \"" H323NAT_COMPLETION "\"; h323nat() { \"" H323NAT_PROGRAM
            "\" \"$@\"; }; COMP_WORDS=(h323nat " +
            std::string(c.words) +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _h323nat; echo -n ${COMPREPLY[@]}' >" +
            testing_cli::shellWord(found);
        EXPECT_EQ(std::system(line.c_str()), 0);
        EXPECT_EQ(testing_cli::contents(found), c.completions) << c.words;
    }
    std::filesystem::remove(found);
}

} // namespace
