#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli {

/// What is wrong with the first word of a command line that `app` does not know, and which one was
/// probably meant; empty when all are known.
std::string unknownWord(const CLI::App& app, const std::vector<std::string>& arguments);

} // namespace cli
