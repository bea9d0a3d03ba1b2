// The lines of a file of encodings, for tests of several folders.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/vector_file.h"

inline std::vector<cli::VectorLine> readVectors(const std::string& name) {
    const std::string path = std::string(H323NAT_VECTORS) + "/" + name;
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + " cannot be read");
    }
    std::vector<cli::VectorLine> lines;
    cli::VectorReader reader(file);
    while (auto line = reader.next()) {
        lines.push_back(std::move(*line));
    }
    if (lines.empty()) {
        throw std::runtime_error(path + " has no lines");
    }
    return lines;
}
