#pragma once

#include "tests/support/scratch_path.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace testing_cli {

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// A word for the shell.
inline std::string shellWord(const std::string& word) {
    return " '" + word + "'";
}

// The program itself, in a process of its own: the module starts once in a process. `output` is
// where its standard output goes.
inline Outcome runProgram(const std::vector<std::string>& arguments,
                          const std::string& output = scratchPath("stdout")) {
    const std::string errors = scratchPath("stderr");
    std::string command = shellWord(H323NAT_PROGRAM);
    for (const std::string& argument : arguments) {
        command += shellWord(argument);
    }
    command += " >" + shellWord(output) + " 2>" + shellWord(errors);
    const int status = std::system(command.c_str());
    const bool isFile = std::filesystem::is_regular_file(output);
    Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, isFile ? contents(output) : "",
                    contents(errors)};
    if (isFile) {
        std::filesystem::remove(output);
    }
    std::filesystem::remove(errors);
    return outcome;
}

} // namespace testing_cli
