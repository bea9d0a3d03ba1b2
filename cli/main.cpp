#include <exception>
#include <iostream>

#include "cli/commands.h"

namespace {

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
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : cli::exitUnusable;
    }
    return exitStatus;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "h323nat: " << error.what() << '\n';
        return cli::exitUnusable;
    }
}
