#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

/// A path for a file of this process: tests run beside each other, and so do whole builds.
inline std::string scratchPath(const std::string& name) {
    return testing::TempDir() + "h323nat_" + std::to_string(getpid()) + "_" + name;
}
