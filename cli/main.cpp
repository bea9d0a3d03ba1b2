#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/suggestions.h"
#include "cli/terminal.h"

namespace {

// What CLI11 says of the words that an option takes is not for users.
std::string worded(const CLI::ParseError& error) {
    std::string text = error.what();
    const std::string option = text.substr(0, text.find(':'));
    const size_t missing = text.find(": 1 required ");
    if (text.find(": At Most 1 required") != std::string::npos) {
        return option + " is given more than once; it takes one value";
    }
    if (missing != std::string::npos) {
        return option + " needs a value" +
               text.substr(missing + 12, text.rfind(' ') - missing - 12);
    }
    const std::string unread = "Could not convert: ";
    const size_t equals = text.find(" = ");
    if (text.compare(0, unread.size(), unread) == 0 && equals != std::string::npos) {
        return text.substr(unread.size(), equals - unread.size()) + " cannot be " +
               text.substr(equals + 3);
    }
    return text;
}

int refuse(const CLI::App& app, const CLI::ParseError& error,
           const std::vector<std::string>& arguments) {
    const std::string unknown = cli::unknownWord(app, arguments);
    if (!unknown.empty()) {
        cli::complain(unknown);
        return cli::exitUnusable;
    }
    std::string command = "h323nat ";
    for (const CLI::App* chosen : app.get_subcommands()) {
        command += chosen->get_name() + " ";
    }
    cli::complain(worded(error) + "\n" + command + "--help tells more.");
    return cli::exitUnusable;
}

int run(int argc, char** argv) {
    CLI::App app("Looks into H.323 signalling and translates its addresses.", "h323nat");
    app.set_version_flag("--version", "h323nat " H323NAT_VERSION);
    app.require_subcommand(1);
    // A file named from the root, /tmp/call.pcap, is no option on any system.
    app.allow_windows_style_options(false);
    int exitStatus = 0;
    cli::addDecodeCommand(app, exitStatus);
    cli::addLocateCommand(app, exitStatus);
    cli::addVerifyCommand(app, exitStatus);
    cli::addReplayCommand(app, exitStatus);
#ifdef H323NAT_LIVE_GATEWAY
    cli::addGatewayCommand(app, exitStatus);
    cli::addStatusCommand(app, exitStatus);
    cli::addCallsCommand(app, exitStatus);
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error); // --help, --version
            return 0;
        }
        return refuse(app, error, {argv + 1, argv + argc});
    }
    return exitStatus;
}

// A full disk or a closed pipe must not look like success.
int finishOutput(int exitStatus) {
    errno = 0;
    std::cout.flush();
    if (std::cout) {
        return exitStatus;
    }
    cli::complain(std::string("standard output cannot be written") +
                  (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    return cli::exitUnusable;
}

} // namespace

int main(int argc, char** argv) {
    cli::keepClosedStreams();
    try {
        return finishOutput(run(argc, argv));
    } catch (const std::exception& error) {
        cli::complain(error.what());
        return cli::exitUnusable;
    }
}
