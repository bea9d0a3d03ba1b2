#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace cli {

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

inline Outcome run(std::vector<std::string> arguments) {
    CLI::App app("", "h323nat");
    app.allow_windows_style_options(false);
    Outcome outcome;
    addDecodeCommand(app, outcome.status);
    addLocateCommand(app, outcome.status);
    addVerifyCommand(app, outcome.status);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::reverse(arguments.begin(), arguments.end()); // CLI11 takes them last first
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError&) {
        outcome.status = exitUnusable;
    } catch (const std::exception& error) {
        outcome.status = exitUnusable;
        std::cerr << error.what();
    }
    outcome.output = testing::internal::GetCapturedStdout();
    outcome.errors = testing::internal::GetCapturedStderr();
    return outcome;
}

} // namespace cli
