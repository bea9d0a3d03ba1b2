#pragma once

#include <CLI/CLI.hpp>

/// The subcommands of h323nat. Each adds itself to the program; when it is the one that was asked
/// for, it runs while the command line is parsed and leaves the program's exit status: 0 when all
/// went well, 1 when what was looked at has faults, 2 when it could not be looked at.
namespace cli {

void addDecodeCommand(CLI::App& app, int& exitStatus);
void addLocateCommand(CLI::App& app, int& exitStatus);
void addVerifyCommand(CLI::App& app, int& exitStatus);
void addReplayCommand(CLI::App& app, int& exitStatus);

/// Only where the live gateway is built (H323NAT_LIVE_GATEWAY).
void addGatewayCommand(CLI::App& app, int& exitStatus);
void addStatusCommand(CLI::App& app, int& exitStatus);
void addCallsCommand(CLI::App& app, int& exitStatus);

constexpr int exitFaults = 1;
constexpr int exitUnusable = 2;

} // namespace cli
