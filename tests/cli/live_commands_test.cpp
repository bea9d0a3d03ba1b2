// `h323nat status --watch` and `h323nat calls` against a socket that answers like a gateway.
#include "cli/commands.h"
#include "cli/status_watch.h"
#include "gateway/live/status_socket.h"
#include "report/call_archive.h"
#include "tests/cli/run_program.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing_cli::contents;
using testing_cli::runProgram;

std::string status(unsigned packets, const std::string& alias = "alice") {
    const std::string call =
        R"({"call":7,"direction":"out","inside":"10.0.0.5:4000","remote":"203.0.113.9:1720",)"
        R"("identifier":"ab","from":")" +
        alias +
        R"(","to":"","verdict":"partly: setup.h245Address: refused","addresses_rewritten":2,)"
        R"("seconds":30,"connected_after":2)";
    return R"({"inside":"eth1","outside":"eth0","public":"203.0.113.1","dry_run":false,)"
           R"("uptime":100,"call_total":1,"mapping_total":3,"delay_us_median":40,"calls":[)" +
           call + R"(}],"ended_calls":[)" + call +
           R"(,"ended_ago":12,"end":"released","cause":16}],"mappings":[],"counters":{)"
           R"("packets_sent":)" +
           std::to_string(packets) +
           R"(,"packets_received":5,"messages_seen":4,"messages_rewritten":1}})";
}

// Answers until it goes away, with its status or what is given.
class FakeGateway {
public:
    explicit FakeGateway(const std::string& answer = "")
        : folder(scratchPath("gateway")), socket(folder + "/gateway.sock") {
        std::filesystem::create_directory(folder);
        EXPECT_EQ(listener_.open(socket), "");
        thread_ = std::thread([this, answer] {
            unsigned packets = 0;
            while (!over_) {
                pollfd waiting{listener_.descriptor(), POLLIN, 0};
                if (poll(&waiting, 1, 50) == 1) {
                    packets += 10;
                    listener_.answer([&] { return answer.empty() ? status(packets) : answer; });
                }
            }
        });
    }
    FakeGateway(const FakeGateway&) = delete;
    FakeGateway& operator=(const FakeGateway&) = delete;
    ~FakeGateway() {
        over_ = true;
        thread_.join();
        std::filesystem::remove_all(folder);
    }

    const std::string folder;
    const std::string socket;

private:
    gateway::StatusSocket listener_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

TEST(LiveCommands, FaultsAreNamedWithAWayOn) {
    using Arguments = std::vector<std::string>;
    for (const auto& [arguments, message] :
         std::initializer_list<std::pair<Arguments, const char*>>{
             {{"stat"}, "no command stat; did you mean status?\n"},
             {{"status", "--interval", "nan"},
              "--interval: nan is no number of seconds from 0.1 to 3600"},
             {{"gateway", "--config", "/"}, "cannot read '/': Is a directory"},
             {{"calls", "--html", "-1"}, "--html: -1 is no number of a call"},
             {{"calls", "--html", "99999999999999999999"}, "is no number of a call"},
             {{"calls", "--html", "1", "--json"}, "--json excludes --html"}}) {
        const testing_cli::Outcome outcome = runProgram(arguments);
        EXPECT_EQ(outcome.status, cli::exitUnusable) << message;
        EXPECT_NE(outcome.errors.find(message), std::string::npos) << outcome.errors;
    }
}

TEST(StatusWatch, AScreenHasCallsVerdictsAndRatesAndNoMore) {
    const std::string screen = cli::watchScreen(status(30), status(10), 2, {24, 200});
    for (const char* part : {"calls 1   mappings 3", "packets out 10.0, in 0.0",
                             "     7      30 s  alice 10.0.0.5:4000"
                             " → 203.0.113.9:1720  partly: setup",
                             "ended:"}) {
        EXPECT_NE(screen.find(part), std::string::npos) << part << "\nin\n" << screen;
    }
    EXPECT_NE(cli::watchScreen(status(30), "", 0, {24, 200}).find("packets out -"),
              std::string::npos);
    const std::string small = cli::watchScreen(status(30), "", 0, {6, 20});
    EXPECT_EQ(std::count(small.begin(), small.end(), '\n'), 5);
    EXPECT_NE(small.find("\nand 4 more lines"), std::string::npos) << small;
    // An alias cannot steer the terminal.
    EXPECT_EQ(cli::watchScreen(status(30, "\\u001b[2J"), "", 0, {24, 200}).find('\033'),
              std::string::npos);
}

// script(1) is the terminal; timeout(1) the user who interrupts.
TEST(StatusWatch, RedrawsInPlaceOnATerminal) {
    const FakeGateway gateway;
    const testing_cli::Outcome piped =
        runProgram({"status", "--watch", "--socket", gateway.socket});
    EXPECT_EQ(piped.status, cli::exitFaults);
    EXPECT_EQ(piped.errors.find("h323nat: --watch needs a terminal"), 0U) << piped.errors;
    if (std::system("command -v script timeout >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "no script(1) or timeout(1) here";
    }
    const std::string typescript = scratchPath("typescript");
    const std::string line =
        "TERM=xterm script -qec \"timeout --foreground -s INT 2 " H323NAT_PROGRAM
        " status --watch --interval 0.2 --socket " +
        gateway.socket + "; echo status \\$?\" /dev/null >" + typescript + " </dev/null";
    EXPECT_EQ(std::system(line.c_str()), 0);
    const std::string shown = contents(typescript);
    size_t screens = 0;
    for (size_t at = shown.find("h323nat gateway: eth1"); at != std::string::npos;
         at = shown.find("h323nat gateway: eth1", at + 1)) {
        ++screens;
    }
    EXPECT_GE(screens, 2U) << shown;
    EXPECT_NE(shown.find("\033[H"), std::string::npos);
    EXPECT_NE(shown.find("\033[?25h"), std::string::npos) << "the cursor comes back";
    std::filesystem::remove(typescript);
}

TEST(Calls, RecordsOfEndedCallsAndTheirPages) {
    const FakeGateway gateway;
    const testing_cli::Outcome text = runProgram({"calls", "--socket", gateway.socket});
    EXPECT_EQ(text.status, 0) << text.errors;
    EXPECT_NE(text.output.find("partly: setup.h245Address: refused  released, cause 16"),
              std::string::npos)
        << text.output;
    const testing_cli::Outcome json = runProgram({"calls", "--json", "--socket", gateway.socket});
    for (const char* field :
         {"\"identifier\":\"ab\"", "\"from\":\"alice\"", "\"cause\":16", "\"started_at\":\"20",
          "\"connected_at\":\"20", "\"ended_at\":\"20", "\"verdict\":\"partly"}) {
        EXPECT_NE(json.output.find(field), std::string::npos) << json.output;
    }

    const std::vector<std::string> page = {"calls", "--html", "7", "--socket", gateway.socket};
    EXPECT_EQ(runProgram(page).errors.find("h323nat: nothing is kept of call 7"), 0U);
    report::CallArchive archive;
    archive.configure({.calls = report::archiveBeside(gateway.socket), .troubled = ""});
    report::LadderMessage message;
    message.time = 1;
    message.content.role = H323NAT_ROLE_SIGNALLING;
    message.content.name = "setup";
    message.content.octets = {0};
    archive.note(7, message, {});
    report::CallRecord known;
    known.callingAlias = "alice";
    known.start = 0;
    EXPECT_EQ(archive.end(7, known, {0x0A000000, 24}), "");
    const testing_cli::Outcome html = runProgram(page);
    EXPECT_EQ(html.status, 0) << html.errors;
    EXPECT_NE(html.output.find("data-message=\"0\""), std::string::npos);
    EXPECT_NE(html.output.find("alice"), std::string::npos);
}

TEST(StatusSocket, NonsenseIsNoSuccess) {
    for (const char* answer : {" ", "[]", "{}", "null", "\xFF\x1B[31m", "[[[[[[["}) {
        const FakeGateway gateway(answer);
        for (std::vector<std::string> command : {std::vector<std::string>{"status"},
                                                 {"status", "--json"},
                                                 {"calls"},
                                                 {"calls", "--json"}}) {
            command.insert(command.end(), {"--socket", gateway.socket});
            const testing_cli::Outcome outcome = runProgram(command);
            EXPECT_EQ(outcome.status, cli::exitFaults) << answer;
            EXPECT_EQ(outcome.output, "") << answer;
            EXPECT_EQ(outcome.errors.find("h323nat: the gateway's answer makes no sense"), 0U)
                << outcome.errors;
            EXPECT_EQ(outcome.errors.find('\033'), std::string::npos);
        }
    }
}

// A gateway may send more than others.
TEST(StatusSocket, FullListsComeWhole) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a gateway's rights";
    }
    const std::string full(3'000'000, 'x');
    const FakeGateway gateway(full);
    std::string answer;
    EXPECT_EQ(gateway::readStatus(gateway.socket, answer), "");
    EXPECT_EQ(answer.size(), full.size());
}

} // namespace
