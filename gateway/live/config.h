#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace gateway {

enum class LogFormat : uint8_t { Logfmt, Json };
enum class QueueScope : uint8_t { H323, All };

// Everything that an operator can set. Times in seconds, addresses as numbers (0: not set).
struct LiveConfig {
    std::string inside;
    std::string outside;
    uint32_t publishedHost = 0;
    uint32_t publicAddress = 0; // 0: the outside interface's own address
    bool publishT120 = false;
    bool masquerade = false;
    bool strict = false;
    bool dryRun = false;
    QueueScope queueScope = QueueScope::H323;
    uint16_t queueNumber = 1720;
    uint32_t queueLength = 4096;
    uint16_t firstPort = 20000;
    uint16_t lastPort = 29999;
    uint32_t mappingsPerHost = 64;
    uint32_t mediaIdle = 90;
    uint32_t callIdle = 3600;
    uint32_t registrationIdle = 7200;
    uint32_t sweepInterval = 5;
    std::string statusSocket = "/run/h323nat/gateway.sock";
    std::string metricsFile;
    LogFormat logFormat = LogFormat::Logfmt;
    bool logDebug = false;
};

// One setting: a key of the configuration file and, with two dashes, an option of the command line.
// `apply` gives an empty text, or what the value should have been.
struct Setting {
    const char* name;
    const char* value; // placeholder for usage texts
    const char* help;
    std::string (*apply)(LiveConfig& config, std::string_view value);
};

// All settings, in the order in which they are documented.
std::span<const Setting> settings();

// Sets one value. Gives an empty text, or the reason for refusing it ("unknown setting ...").
std::string applySetting(LiveConfig& config, std::string_view name, std::string_view value);

// Reads "key = value" lines; '#' starts a comment, blank lines are skipped. Gives an empty text, or
// what was wrong, starting with "<origin>:<line>: ".
std::string readConfig(LiveConfig& config, std::string_view text, std::string_view origin);

// What is missing or contradictory in the whole configuration; empty when it can be used.
std::string checkConfig(const LiveConfig& config);

} // namespace gateway
