#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "cli/commands.h"
#include "cli/hex.h"
#include "cli/lossless_check.h"
#include "cli/places_check.h"
#include "cli/status_text.h"
#include "cli/terminal.h"
#include "cli/vector_file.h"
#include "tree/value_text.h"

namespace cli {
namespace {

struct VerifyOptions {
    std::vector<std::string> files;
    std::optional<int32_t> expectedStatus;
    bool lossless = false;
    bool places = false;
};

struct Tally {
    size_t passed = 0;
    size_t failed = 0;
    size_t empty = 0; // files
};

std::string octetAt(const std::vector<uint8_t>& octets, size_t at) {
    return at < octets.size() ? tree::hexText({&octets[at], 1}) : "the end";
}

std::string difference(const std::vector<uint8_t>& expected, const std::vector<uint8_t>& found) {
    const size_t shorter = std::min(expected.size(), found.size());
    const auto ends = std::mismatch(
        expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(shorter), found.begin());
    const auto at = static_cast<size_t>(ends.first - expected.begin());
    return "encodes to " + std::to_string(found.size()) + " octets of " +
           std::to_string(expected.size()) + ", first difference at octet " + std::to_string(at) +
           ": expected " + octetAt(expected, at) + ", found " + octetAt(found, at);
}

/// Why the line fails; empty when it passes.
std::string faultOf(const VectorLine& line, const VerifyOptions& options) {
    if (options.lossless) {
        return losslessFaultOf(line);
    }
    if (options.places) {
        return placesFaultOf(line);
    }
    const TypeDescription* type = findType(line.type);
    if (type == nullptr) {
        return "no type has this name";
    }
    MessageValue value(*type);
    const int32_t decoded = value.decode(line.encoding);
    if (options.expectedStatus) {
        return decoded == *options.expectedStatus
                   ? ""
                   : "expected decoding to give " + statusText(*options.expectedStatus) +
                         ", found " + statusText(decoded);
    }
    if (decoded != PER_OK) {
        return "decoding gives " + statusText(decoded) + " near octet " +
               std::to_string(value.consumed());
    }
    std::vector<uint8_t> encoding;
    const int32_t encoded = value.encode(&encoding);
    if (encoded != PER_OK) {
        return "encoding gives " + statusText(encoded);
    }
    const std::vector<uint8_t> expected = line.third.empty() ? line.encoding : fromHex(line.third);
    return encoding == expected ? "" : difference(expected, encoding);
}

void verifyStream(std::istream& stream, const std::string& name, const VerifyOptions& options,
                  Tally& tally) {
    VectorReader reader(stream);
    const size_t before = tally.passed + tally.failed;
    for (;;) {
        std::string fault;
        std::string type;
        try {
            const std::optional<VectorLine> line = reader.next();
            if (!line) {
                break;
            }
            type = line->type + ": ";
            fault = faultOf(*line, options);
        } catch (const std::runtime_error& error) {
            fault = error.what();
        }
        if (fault.empty()) {
            ++tally.passed;
        } else {
            ++tally.failed;
            std::cout << name << ':' << reader.lineNumber() << ": " << type << fault << '\n';
        }
    }
    // Checked nothing is not the same as checked and good.
    if (tally.passed + tally.failed == before) {
        ++tally.empty;
        complain(name + " has no line to check");
    }
}

int run(const VerifyOptions& options) {
    Tally tally;
    for (const std::string& name : options.files) {
        if (name == "-") {
            verifyStream(std::cin, "standard input", options, tally);
            continue;
        }
        std::ifstream file(name);
        if (!file || std::filesystem::is_directory(name)) {
            throw std::runtime_error(name + ": cannot be read");
        }
        verifyStream(file, name, options, tally);
    }
    std::cout << tally.passed << " passed, " << tally.failed << " failed\n";
    return tally.failed + tally.empty == 0 ? 0 : exitFaults;
}

} // namespace

void addVerifyCommand(CLI::App& app, int& exitStatus) {
    auto* command = app.add_subcommand(
        "verify",
        "Decode and encode again every line TYPE HEX of files and compare. A third field "
        "is the encoding to expect where it is not the input; lines that begin with # are "
        "comments");
    const auto options = std::make_shared<VerifyOptions>();
    command->add_option("files", options->files, "Files of lines; - is standard input")->required();
    command->add_option("--expect-status", options->expectedStatus,
                        "Every line must fail to decode with this status");
    command
        ->add_flag("--lossless", options->lossless,
                   "Instead decode every line as lossless rewriting does, set its addresses, and "
                   "check that nothing else changes. The third field lists addresses and their "
                   "places, FIELD=OFFSET:LENGTH,...; without it all are set that the module's "
                   "rules may set")
        ->excludes("--expect-status");
    command
        ->add_flag("--places", options->places,
                   "Instead look up the IPv4 addresses of every line and compare them with the "
                   "third field, PATH=OFFSET,... or - for none")
        ->excludes("--expect-status")
        ->excludes("--lossless");
    command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

} // namespace cli
