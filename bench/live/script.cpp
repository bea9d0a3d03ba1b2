#include "bench/live/script.h"

#include "bench/live/sockets.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <sstream>
#include <string_view>

namespace load {
namespace {

constexpr std::array<std::string_view, whatCount> whatNames = {
    "media",     "control",     "client",   "listening", "ras",
    "far-media", "far-control", "far-h245", "number",    "sequence"};

template <typename Names> size_t indexOf(const Names& names, std::string_view word) {
    const auto found = std::find(names.begin(), names.end(), word);
    if (found == names.end()) {
        fail("unknown word '" + std::string(word) + "' in the script");
    }
    return static_cast<size_t>(found - names.begin());
}

std::vector<uint8_t> fromHex(std::string_view text) {
    std::vector<uint8_t> octets(text.size() / 2);
    for (size_t i = 0; i < octets.size(); ++i) {
        const char* const at = text.data() + 2 * i;
        if (std::from_chars(at, at + 2, octets[i], 16).ptr != at + 2) {
            fail("'" + std::string(text) + "' is not hexadecimal");
        }
    }
    return octets;
}

Patch readPatch(const std::string& text, size_t length) {
    const size_t colon = std::min(text.find(':'), text.size() - 1);
    Patch patch;
    patch.offset = std::stoul(text);
    patch.what = static_cast<What>(indexOf(whatNames, std::string_view(text).substr(colon + 1)));
    if (patch.offset + octetsOf(patch.what) > length) {
        fail("'" + text + "' lies behind the message");
    }
    return patch;
}

ScriptMessage readMessage(std::istringstream& words) {
    constexpr std::array<std::string_view, 3> channels = {"signalling", "h245", "ras"};
    std::string channel;
    std::string side;
    std::string part;
    std::string hex;
    words >> channel >> side >> part >> hex;
    ScriptMessage message;
    message.channel = static_cast<Channel>(indexOf(channels, channel));
    message.fromInside = side == "in";
    message.ends = part == "end";
    message.octets = fromHex(hex);
    for (std::string patch; words >> patch;) {
        message.patches.push_back(readPatch(patch, message.octets.size()));
    }
    return message;
}

} // namespace

std::vector<Script> readScripts(const std::string& path) {
    std::ifstream file(path);
    std::vector<Script> scripts;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == "kind") {
            words >> scripts.emplace_back().kind;
        } else if (first == "message" && !scripts.empty()) {
            scripts.back().messages.push_back(readMessage(words));
        }
    }
    if (scripts.empty()) {
        fail("no calls in " + path);
    }
    return scripts;
}

} // namespace load
