#include "cli/commands.h"
#include "cli/terminal.h"

#include "gateway/live/config.h"
#include "gateway/live/daemon.h"
#include "gateway/live/whole_file.h"

#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cli {
namespace {

struct GatewayArguments {
    std::string configFile;
    std::vector<std::pair<std::string, std::string>> settings;
    bool printRules = false;
    bool check = false;
    bool dryRun = false;
};

// The file first, the command line over it.
std::string loadConfig(const GatewayArguments& arguments, gateway::LiveConfig& config) {
    if (!arguments.configFile.empty()) {
        std::string text;
        if (const int failure = gateway::readFile(arguments.configFile, text); failure != 0) {
            return "cannot read '" + arguments.configFile + "': " + std::strerror(failure);
        }
        std::string wrong = gateway::readConfig(config, text, arguments.configFile);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    for (const auto& [name, value] : arguments.settings) {
        const std::string wrong = gateway::applySetting(config, name, value);
        if (!wrong.empty()) {
            return "--" + wrong;
        }
    }
    config.dryRun = arguments.dryRun;
    if (config.dryRun) {
        config.table += "_dry"; // beside a gateway that works
    }
    return gateway::checkConfig(config);
}

int report(const std::string& failure, int status) {
    if (failure.empty()) {
        return 0;
    }
    complain(failure);
    return status;
}

int run(const GatewayArguments& arguments) {
    gateway::LiveConfig config;
    std::string failure = loadConfig(arguments, config);
    if (!failure.empty()) {
        return report(failure, exitUnusable);
    }
    if (arguments.check) {
        std::cout << "the settings can be used\n";
        return 0;
    }
    if (arguments.printRules) {
        std::cout << gateway::describeRules(config);
        return 0;
    }
    const auto source = [&](gateway::LiveConfig& fresh) { return loadConfig(arguments, fresh); };
    return report(gateway::runGateway(source), exitFaults);
}

} // namespace

void addGatewayCommand(CLI::App& app, int& exitStatus) {
    const auto arguments = std::make_shared<GatewayArguments>();
    CLI::App* command =
        app.add_subcommand("gateway", "Translate the H.323 calls of private hosts on this router");
    command
        ->add_option("--config", arguments->configFile,
                     "Read settings from FILE; options here come before it")
        ->type_name("FILE");
    command->add_flag("--print-rules", arguments->printRules, "Print the nftables rules and end");
    command->add_flag("--check", arguments->check, "Check the settings and end");
    command->add_flag("--dry-run", arguments->dryRun, "Look at packets and report, change nothing");
    for (const gateway::Setting& setting : gateway::settings()) {
        const std::string name = setting.name;
        const auto keep = [arguments, name](const std::string& value) {
            arguments->settings.emplace_back(name, value);
        };
        CLI::Option* const option =
            command->add_option_function<std::string>("--" + name, keep, setting.help)
                ->type_name(setting.value);
        if (setting.initial != nullptr) {
            option->default_str(setting.initial);
        }
    }
    command->callback([arguments, &exitStatus] { exitStatus = run(*arguments); });
}

} // namespace cli
