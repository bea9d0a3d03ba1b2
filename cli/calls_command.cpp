#include "cli/commands.h"
#include "cli/terminal.h"

#include "gateway/capture_time.h"
#include "gateway/live/config.h"
#include "gateway/live/status.h"
#include "gateway/live/status_socket.h"
#include "report/call_archive.h"
#include "report/call_page.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

namespace cli {
namespace {

struct CallsArguments {
    std::string socket = gateway::LiveConfig{}.statusSocket;
    bool asJson = false;
    uint64_t page = 0; // call; 0: none
};

std::string timeText(int64_t secondsAgo) {
    using namespace std::chrono;
    const auto now = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    const std::string text = gateway::timestampText({now - secondsAgo, 0});
    return text.substr(0, text.find('.')) + "Z";
}

// The gateway counts from a clock that never steps back; people read the wall's.
void printRecords(const std::string& status) {
    const auto parsed = nlohmann::ordered_json::parse(status);
    for (nlohmann::ordered_json call : parsed.at("ended_calls")) {
        const auto ended = call.at("ended_ago").get<int64_t>();
        const int64_t started = ended + call.at("seconds").get<int64_t>();
        call["started_at"] = timeText(started);
        if (call.contains("connected_after")) {
            call["connected_at"] = timeText(started - call.at("connected_after").get<int64_t>());
        }
        call["ended_at"] = timeText(ended);
        std::cout << call.dump() << '\n';
    }
}

void printPage(const CallsArguments& arguments) {
    const report::CallRecord record =
        report::archivedCall(report::archiveBeside(arguments.socket), arguments.page);
    report::PageTitle title;
    title.title = "Call " + std::to_string(arguments.page);
    title.settings = "As the gateway saw it. Times are seconds since the call's start.";
    title.zero = record.start;
    report::writeCallPage(std::cout, title, {record});
}

int run(const CallsArguments& arguments) {
    if (arguments.page != 0) {
        printPage(arguments);
        return 0;
    }
    std::string answer;
    const std::string failure = gateway::readStatus(arguments.socket, answer);
    if (!failure.empty()) {
        complain(failure);
        return exitFaults;
    }
    try {
        if (arguments.asJson) {
            printRecords(answer);
        } else {
            std::cout << gateway::callsText(answer);
        }
    } catch (const nlohmann::json::exception& error) {
        complain(std::string("the gateway's answer makes no sense: ") + error.what());
        return exitFaults;
    }
    return 0;
}

} // namespace

void addCallsCommand(CLI::App& app, int& exitStatus) {
    const auto arguments = std::make_shared<CallsArguments>();
    CLI::App* command =
        app.add_subcommand("calls", "Ask the running gateway for the calls that ended");
    command->add_flag("--json", arguments->asJson, "Print one JSON object for each call");
    command
        ->add_option_function<std::string>(
            "--html",
            [arguments](const std::string& text) {
                const char* const end = text.data() + text.size();
                const auto read = std::from_chars(text.data(), end, arguments->page);
                if (read.ec != std::errc() || read.ptr != end || arguments->page == 0) {
                    throw CLI::ValidationError("--html", text + " is no number of a call");
                }
            },
            "Instead print a page of the call with this number, running or ended; the "
            "gateway must keep its messages (keep-calls)")
        ->type_name("CALL")
        ->excludes("--json");
    command->add_option("--socket", arguments->socket, "The gateway's status socket")
        ->type_name("PATH")
        ->capture_default_str();
    command->callback([arguments, &exitStatus] { exitStatus = run(*arguments); });
}

} // namespace cli
