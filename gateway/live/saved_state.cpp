#include "gateway/live/saved_state.h"

#include "gateway/live/whole_file.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

using nlohmann::json;

constexpr unsigned version = 2;
constexpr std::array<const char*, 3> kinds = {"media", "ras", "control"}; // by MappingKind

// FNV-1a over the members; a single changed octet always shows.
std::string checkOf(json saved) {
    saved.erase("check");
    uint64_t sum = 0xCBF29CE484222325U;
    for (const char octet : saved.dump()) {
        sum = (sum ^ static_cast<uint8_t>(octet)) * 0x100000001B3U;
    }
    return std::to_string(sum);
}

PortForward forwardOf(const json& saved) {
    PortForward forward;
    const auto kind = std::find(kinds.begin(), kinds.end(), saved.at("kind").get<std::string>());
    const auto address = parseAddress(saved.at("inside").get<std::string>());
    const auto port = saved.at("port").get<uint32_t>();
    const auto publicPort = saved.at("public").get<uint32_t>();
    if (kind == kinds.end() || !address || port == 0 || port > 65535 || publicPort == 0 ||
        publicPort > 65535) {
        throw json::other_error::create(501, "a mapping makes no sense", nullptr);
    }
    forward.kind = static_cast<MappingKind>(kind - kinds.begin());
    forward.inside = {*address, static_cast<uint16_t>(port)};
    forward.publicPort = static_cast<uint16_t>(publicPort);
    forward.gatekeeper = parseAddress(saved.value("gatekeeper", "0.0.0.0")).value_or(0);
    return forward;
}

} // namespace

std::string readState(const std::string& path, SavedState& state) {
    std::string text;
    const int failure = readFile(path, text);
    if (failure == ENOENT) {
        return {};
    }
    const std::string prefix = "state file '" + path + "': ";
    const json saved = json::parse(text, nullptr, false);
    if (failure != 0 || !saved.is_object()) {
        return prefix + "cannot be read (" +
               (failure != 0 ? std::strerror(failure) : "it is no JSON object") +
               "); remove it to start without the mappings of the last run";
    }
    if (saved.value("version", json()) != json(version)) {
        return prefix + "is of another version of this program; remove it to start without the "
                        "mappings of the last run";
    }
    try {
        if (saved.at("check") != checkOf(saved)) {
            throw json::other_error::create(501, "the check does not fit", nullptr);
        }
        SavedState found;
        found.seed = saved.at("seed").get<uint64_t>();
        for (const json& forward : saved.at("mappings")) {
            found.forwards.push_back(forwardOf(forward));
        }
        state = found;
    } catch (const json::exception&) {
        return prefix + "is damaged; remove it to start without the mappings of the last run";
    }
    return {};
}

std::string writeState(const std::string& path, const SavedState& state) {
    json saved = {{"version", version}, {"seed", state.seed}, {"mappings", json::array()}};
    for (const PortForward& forward : state.forwards) {
        saved["mappings"].push_back({{"kind", kinds.at(static_cast<size_t>(forward.kind))},
                                     {"inside", toText(forward.inside.address)},
                                     {"port", forward.inside.port},
                                     {"public", forward.publicPort},
                                     {"gatekeeper", toText(forward.gatekeeper)}});
    }
    saved["check"] = checkOf(saved);
    return replaceFile(path, saved.dump() + "\n", FileUse::State);
}

} // namespace gateway
