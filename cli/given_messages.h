#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/framing.h"

namespace cli {

/// How a command line says where messages are and of what type.
struct GivenOptions {
    std::vector<std::string> words;
    std::string type;
    bool tpkt = false;
    bool ras = false;
};

/// The options and the words of a command that reads messages.
void addGivenOptions(CLI::App& command, GivenOptions& options);

struct GivenMessage {
    /// What it reads as. Of a message whose type had to be guessed the one that fits best, or every
    /// top-level type when it reads to its end as none.
    std::vector<FramedMessage> readings;
    std::string heading;           ///< where a captured message was met, else empty
    nlohmann::ordered_json origin; ///< the same for programs: its frame and ends, or its offset
};

/// Calls `visit` for every message given, in order. Files without any are named on the error
/// output. Throws std::runtime_error for input that cannot be used and gateway::CaptureError for a
/// damaged capture, behind the messages before the fault.
void forEachMessage(const GivenOptions& options,
                    const std::function<void(const GivenMessage&)>& visit);

} // namespace cli
