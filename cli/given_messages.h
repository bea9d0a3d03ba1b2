#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/framing.h"
#include "cli/json_array.h"

namespace cli {

/// How a command line says where messages are and of what type.
struct GivenOptions {
    std::vector<std::string> words;
    std::string type;
    bool tpkt = false;
    bool ras = false;
    bool json = false;
};

/// The options and the words of a command that reads messages; `offsets` says what offsets in its
/// JSON count.
void addGivenOptions(CLI::App& command, GivenOptions& options, const std::string& offsets);

struct GivenMessage {
    /// What it reads as. Of a message whose type had to be guessed the one that fits best, or every
    /// top-level type when it reads to its end as none.
    std::vector<FramedMessage> readings;
    std::string heading;           ///< where a captured message was met, else empty
    nlohmann::ordered_json origin; ///< the same for programs: its frame and ends, or its offset
};

/// Calls `report` for every message given, in order; it adds to the array when that is not null,
/// and prints otherwise. True when there was a message, and `report` gave true for all. Throws
/// std::runtime_error for input that cannot be used, gateway::CaptureError for a damaged capture;
/// behind messages that were reported, either is a complaint and gives false.
bool reportMessages(const GivenOptions& options,
                    const std::function<bool(const GivenMessage&, JsonArray*)>& report);

} // namespace cli
