#pragma once

#include "gateway/endpoint.h"
#include "gateway/segment_hold.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

constexpr uint16_t dataPort = 1503; // T.120

enum class LogFormat : uint8_t { Logfmt, Json };
enum class QueueScope : uint8_t { H323, All };
enum class TranslationScope : uint8_t { Full, Listed };
enum class MediaSource : uint8_t { Learned, Any };

// A private host that accepts calls from outside without a gatekeeper: TCP `publicPort` of the
// public address leads to its port 1720.
struct PublishedHost {
    uint32_t address = 0;
    uint16_t publicPort = 0;

    bool operator==(const PublishedHost&) const = default;
};

// Everything that an operator can set. Times in seconds, addresses as numbers (0: not set).
struct LiveConfig {
    std::vector<std::string> inside; // names; one that ends in '*' stands for all that begin so
    std::string outside;
    std::vector<PublishedHost> published;
    uint32_t publicAddress = 0;     // 0: the outside interface's own address
    uint32_t advertisedAddress = 0; // what messages carry, if not the public address
    bool publishT120 = false;
    bool masquerade = false;
    TranslationScope scope = TranslationScope::Full;
    uint32_t calls = 1000;
    bool strict = false;
    bool dryRun = false;
    QueueScope queueScope = QueueScope::H323;
    uint16_t queueNumber = 1720;
    uint32_t queueLength = 4096;
    uint16_t firstPort = 20000;
    uint16_t lastPort = 29999;
    uint32_t mappingsPerHost = 2000;
    uint32_t unansweredPerHost = 4; // RAS mappings for which no gatekeeper has answered
    uint16_t lowestInsidePort = 1024;
    MediaSource mediaSource = MediaSource::Learned;
    HoldLimits hold;
    uint32_t mediaIdle = 90;
    uint32_t callIdle = 3600;
    uint32_t registrationIdle = 7200;
    uint32_t sweepInterval = 5;
    std::string table = "h323nat";
    std::string stateFile;
    Endpoint feedFrom; // port 0: no second router
    Endpoint feedTo;
    std::string statusSocket = "/run/h323nat/gateway.sock";
    std::string metricsFile;
    bool countPackets = true;    // by the kernel, of all connections
    uint32_t keepCalls = 0;      // calls whose messages are kept for `h323nat calls --html`
    std::string captureTroubled; // folder for captures of calls that were not all translated
    LogFormat logFormat = LogFormat::Logfmt;
    bool logDebug = false;

    bool operator==(const LiveConfig&) const = default;

    // Where the module is told to route calls from outside: the host published on port 1720.
    [[nodiscard]] uint32_t firstPublished() const;
};

// "eth1, vlan*"
std::string insideText(const LiveConfig& config);

// Whether an interface of this name is one towards the private hosts.
bool isInsideName(const LiveConfig& config, std::string_view name);

// One setting: a key of the configuration file and, with two dashes, an option of the command line.
// `apply` gives an empty text, or what the value should have been.
struct Setting {
    const char* name;
    const char* value; // placeholder for usage texts
    const char* help;
    std::string (*apply)(LiveConfig& config, std::string_view value);
    const char* initial; // the value without the setting; null: none, or the machine's own
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
