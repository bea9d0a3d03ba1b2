#include "cli/commands.h"
#include "cli/progress.h"
#include "cli/replay_page.h"
#include "cli/replay_report.h"
#include "cli/terminal.h"
#include "gateway/capture_file.h"
#include "gateway/replay.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace cli {
namespace {

struct ReplayOptions {
    std::string input;
    std::string output; // empty for none
    std::string page;   // empty for none
    gateway::Network inside;
    uint32_t publicAddress = 0;
    uint32_t publishedAddress = 0; // 0 for none
    std::string scope;             // empty: not chosen
    bool strict = false;
    bool json = false;
};

// Also of files that are still to be made.
bool isSameFile(const std::string& one, const std::string& other) {
    namespace fs = std::filesystem;
    if (one.empty() || other.empty() || one == "-" || other == "-") {
        return false;
    }
    std::error_code error;
    const fs::path path = fs::weakly_canonical(one, error);
    return !fs::is_character_file(path, error) &&
           (path == fs::weakly_canonical(other, error) || fs::equivalent(one, other, error));
}

gateway::ReferenceHostSettings hostSettings(const ReplayOptions& options) {
    gateway::ReferenceHostSettings settings;
    settings.inside = options.inside;
    settings.publicAddress = options.publicAddress;
    settings.publishedAddress = options.publishedAddress;
    settings.lossless = !options.strict;
    settings.fullScope = options.scope != "listed" && !options.strict;
    return settings;
}

// A mistake in the options that each of them alone does not show; empty when there is none.
std::string contradiction(const ReplayOptions& options) {
    if (options.inside.contains(options.publicAddress)) {
        return "--public " + gateway::toText(options.publicAddress) +
               " lies in the --inside network; name the router's outside address";
    }
    if (options.publishedAddress != 0 && !options.inside.contains(options.publishedAddress)) {
        return "--publish " + gateway::toText(options.publishedAddress) +
               " does not lie in the --inside network";
    }
    if (options.strict && options.scope == "full") {
        return "--strict means --scope listed: the full scope writes addresses alone";
    }
    if (options.output.empty() && options.page.empty()) {
        return "name the file to write: --output for the packets, --report for a page of the calls";
    }
    if (isSameFile(options.input, options.output) || isSameFile(options.input, options.page)) {
        return "the output would overwrite the input " + options.input;
    }
    if (options.page == "-" || isSameFile(options.output, options.page)) {
        return "--report needs a file of its own";
    }
    return "";
}

// Frame by frame, so that memory does not grow with the file.
void replayFrames(gateway::CaptureReader& reader, gateway::Replay& replay, Progress& progress) {
    gateway::CapturedFrame frame;
    while (reader.next(frame)) {
        const uint64_t number = frame.number;
        replay.process(frame);
        progress.update(number, [&] { return reader.progress(); });
    }
}

std::string networkText(const ReplayOptions& options) {
    return gateway::toText(options.inside.address) + "/" +
           std::to_string(options.inside.prefixLength);
}

bool insideMatchesNothing(const gateway::ReplayTotals& totals) {
    using gateway::Verdict;
    return totals.count(Verdict::Translated) + totals.count(Verdict::Local) +
               totals.count(Verdict::NoPort) ==
           0;
}

// How the router was set, in one sentence.
std::string settingsText(const ReplayOptions& options) {
    std::string text = "Private network " + networkText(options) + " behind " +
                       gateway::toText(options.publicAddress);
    if (options.publishedAddress != 0) {
        text += ", calls from outside to " + gateway::toText(options.publishedAddress);
    }
    return text + ", " + (hostSettings(options).fullScope ? "full" : "listed") +
           " scope. Times are seconds since the capture's first packet.";
}

std::unique_ptr<ReplayReport> makeReport(const ReplayOptions& options, std::ostream& out) {
    const Stream stream = options.output == "-" ? Stream::Error : Stream::Output;
    auto report = options.json ? makeJsonReport(out) : makeTextReport(out, hasColours(stream));
    if (options.page.empty()) {
        return report;
    }
    report::PageTitle title;
    title.title = "Calls of " + (options.input == "-"
                                     ? "standard input"
                                     : std::filesystem::path(options.input).filename().string());
    title.settings = settingsText(options);
    return makePageReport(std::move(report), options.page, title, options.inside);
}

// What was done until a failure is kept: the frames are written and the report is complete for
// them.
int replayCapture(const ReplayOptions& options) {
    gateway::CaptureReader reader(options.input);
    std::ostream& out = options.output == "-" ? std::cerr : std::cout;
    const auto report = makeReport(options, out);
    std::optional<gateway::CaptureWriter> writer;
    if (!options.output.empty()) {
        writer.emplace(options.output, reader);
    }
    gateway::Replay replay(hostSettings(options), reader.linkType(), *report,
                           [&writer](const auto& frame) {
                               if (writer) {
                                   writer->write(frame);
                               }
                           });
    Progress progress;

    int status = 0;
    std::string failure;
    try {
        replayFrames(reader, replay, progress);
    } catch (const gateway::CaptureError& error) {
        failure = error.what();
    }
    progress.clear();
    if (!failure.empty()) {
        complain(failure + " (" + std::to_string(replay.totals().packets) + " frames replayed)");
        status = exitFaults;
    }
    replay.finish();
    if (writer) {
        writer->finish();
    }
    report->onEnd(replay.totals());
    out.flush();
    const gateway::ReplayTotals& totals = replay.totals();
    if (totals.unmappedCalls > 0 && options.publishedAddress == 0) {
        complain("warning: packets of calls from outside met no mapping (" +
                 std::to_string(totals.unmappedCalls) +
                 "), so that a router drops them; name the host that takes the calls: --publish "
                 "ADDRESS");
    }
    if (status == 0 && totals.packets == 0) {
        complain(options.input + " holds no packet");
        status = exitFaults;
    } else if (status == 0 && insideMatchesNothing(totals)) {
        complain("no packet comes from or goes to a host of --inside " + networkText(options) +
                 "; name the network of the private hosts");
        status = exitFaults;
    }
    return status;
}

int runReplay(const ReplayOptions& options) {
    if (const std::string mistake = contradiction(options); !mistake.empty()) {
        complain(mistake);
        return exitUnusable;
    }
    try {
        return replayCapture(options);
    } catch (const std::exception& error) {
        complain(error.what());
        return exitUnusable;
    }
}

CLI::Option* addAddress(CLI::App& command, const std::string& name, uint32_t& address,
                        const std::string& help) {
    return command
        .add_option_function<std::string>(
            name,
            [name, &address](const std::string& text) {
                const auto parsed = gateway::parseAddress(text);
                constexpr uint32_t firstGroup = 0xE0000000; // 224.0.0.0
                if (!parsed || *parsed == 0 || *parsed >= firstGroup) {
                    throw CLI::ValidationError(name, text + " is no IPv4 address of a host");
                }
                address = *parsed;
            },
            help)
        ->type_name("ADDRESS");
}

} // namespace

void addReplayCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<ReplayOptions>();
    CLI::App* const command = app.add_subcommand(
        "replay", "Sends a capture through the module as a NAT router would, and reports what the "
                  "module did");
    command->add_option("capture", options->input, "pcap or pcapng file; - for standard input")
        ->required();
    command
        ->add_option("-o,--output", options->output,
                     "pcap file of the packets as they leave the router; - for standard output")
        ->type_name("FILE");
    command
        ->add_option("--report", options->page,
                     "HTML page of the calls: ladders of their messages, media streams, and what "
                     "went wrong")
        ->type_name("FILE");
    command
        ->add_option_function<std::string>(
            "--inside",
            [options](const std::string& text) {
                const auto network = gateway::parseNetwork(text);
                if (!network) {
                    throw CLI::ValidationError("--inside",
                                               text + " is no IPv4 network such as 10.0.0.0/24");
                }
                options->inside = *network;
            },
            "the private network behind the router")
        ->type_name("NETWORK")
        ->required();
    addAddress(*command, "--public", options->publicAddress, "the router's public address")
        ->required();
    addAddress(*command, "--publish", options->publishedAddress,
               "private host that takes calls from outside (TCP port 1720)");
    command
        ->add_option("--scope", options->scope,
                     "full: every address, both ways, any number of hosts and calls; listed: the "
                     "module's default, a fixed list of translations")
        ->check(CLI::IsMember({"full", "listed"}))
        ->type_name("SCOPE")
        ->default_str("full");
    command->add_flag("--strict", options->strict,
                      "the listed scope, and encode changed messages anew instead of replacing "
                      "octets");
    command->add_flag("--json", options->json, "report as one JSON object a line");
    command->callback([options, &exitStatus] { exitStatus = runReplay(*options); });
}

} // namespace cli
