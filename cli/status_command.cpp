#include "cli/commands.h"
#include "cli/status_watch.h"
#include "cli/terminal.h"

#include "gateway/live/config.h"
#include "gateway/live/status.h"
#include "gateway/live/status_socket.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

namespace cli {
namespace {

struct StatusArguments {
    std::string socket = gateway::LiveConfig{}.statusSocket;
    bool asJson = false;
    bool watch = false;
    double interval = 1;
};

int fail(const std::string& why) {
    complain(why);
    return exitFaults;
}

int run(const StatusArguments& arguments) {
    if (arguments.watch) {
        const std::string failure = watchStatus(arguments.socket, arguments.interval);
        return failure.empty() ? 0 : fail(failure);
    }
    std::string answer;
    const std::string failure = gateway::readStatus(arguments.socket, answer);
    if (!failure.empty()) {
        return fail(failure);
    }
    try {
        // Half of an answer is none.
        (void)nlohmann::json::parse(answer).at("counters");
        std::cout << (arguments.asJson ? answer : gateway::statusText(answer));
    } catch (const std::exception& error) {
        return fail(std::string("the gateway's answer makes no sense: ") + error.what());
    }
    return 0;
}

} // namespace

void addStatusCommand(CLI::App& app, int& exitStatus) {
    const auto arguments = std::make_shared<StatusArguments>();
    CLI::App* command = app.add_subcommand(
        "status", "Ask the running gateway for its calls, mappings and counters");
    command->add_flag("--json", arguments->asJson, "Print one JSON object");
    command
        ->add_flag("--watch", arguments->watch,
                   "Show calls, verdicts and rates on the terminal, redrawn until interrupted")
        ->excludes("--json");
    command->add_option("--interval", arguments->interval, "Seconds from one drawing to the next")
        ->type_name("SECONDS")
        ->check(
            [](const std::string& text) {
                double seconds = 0;
                const char* const end = text.data() + text.size();
                const auto read = std::from_chars(text.data(), end, seconds);
                const bool good =
                    read.ec == std::errc() && read.ptr == end && seconds >= 0.1 && seconds <= 3600;
                return good ? "" : text + " is no number of seconds from 0.1 to 3600";
            },
            "0.1 to 3600")
        ->capture_default_str();
    command->add_option("--socket", arguments->socket, "The gateway's status socket")
        ->type_name("PATH")
        ->capture_default_str();
    command->callback([arguments, &exitStatus] { exitStatus = run(*arguments); });
}

} // namespace cli
