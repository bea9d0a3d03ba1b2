#include "gateway/live/config.h"

#include "gateway/endpoint.h"

#include <algorithm>
#include <charconv>

namespace gateway {
namespace {

std::string_view trim(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <typename Number>
std::string readNumber(Number& out, std::string_view value, uint32_t least, uint32_t most) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc{} || end != value.data() + value.size() || number < least ||
        number > most) {
        return "expected a number from " + std::to_string(least) + " to " + std::to_string(most);
    }
    out = static_cast<Number>(number);
    return {};
}

std::string readFlag(bool& out, std::string_view value) {
    if (value != "yes" && value != "no") {
        return "expected yes or no";
    }
    out = value == "yes";
    return {};
}

// The name becomes part of rules, so nothing that has a meaning there may pass.
std::string readInterface(std::string& out, std::string_view value) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '-' || c == '_' || c == '@' || c == ':';
    };
    if (value.empty() || value.size() > 15 || !std::all_of(value.begin(), value.end(), allowed)) {
        return "expected the name of a network interface, such as eth0";
    }
    out = value;
    return {};
}

std::string readAddress(uint32_t& out, std::string_view value) {
    const auto address = parseAddress(value);
    if (!address || *address == 0) {
        return "expected an IPv4 address, such as 10.0.0.5";
    }
    out = *address;
    return {};
}

std::string readPortRange(LiveConfig& config, std::string_view value) {
    constexpr const char* expected =
        "expected FIRST-LAST, two ports from 1024 to 65533, at least 4 of them";
    const size_t dash = value.find('-');
    if (dash == std::string_view::npos) {
        return expected;
    }
    uint16_t first = 0;
    uint16_t last = 0;
    if (!readNumber(first, trim(value.substr(0, dash)), 1024, 65533).empty() ||
        !readNumber(last, trim(value.substr(dash + 1)), 1024, 65533).empty() || last < first + 3) {
        return expected;
    }
    config.firstPort = first;
    config.lastPort = last;
    return {};
}

std::string readPath(std::string& out, std::string_view value) {
    if (value.empty() || value.front() != '/') {
        return "expected an absolute path";
    }
    out = value;
    return {};
}

constexpr Setting table[] = {
    {"inside", "IF", "interface towards the private hosts",
     [](LiveConfig& c, std::string_view v) { return readInterface(c.inside, v); }},
    {"outside", "IF", "interface towards the Internet",
     [](LiveConfig& c, std::string_view v) { return readInterface(c.outside, v); }},
    {"publish", "ADDRESS", "private host that accepts calls from outside",
     [](LiveConfig& c, std::string_view v) { return readAddress(c.publishedHost, v); }},
    {"publish-t120", "yes|no", "forward TCP port 1503 to the published host as well",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.publishT120, v); }},
    {"public-address", "ADDRESS", "public address, if not the outside interface's own",
     [](LiveConfig& c, std::string_view v) { return readAddress(c.publicAddress, v); }},
    {"masquerade", "yes|no", "translate the private hosts' connections, if no other rule does",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.masquerade, v); }},
    {"ports", "FIRST-LAST", "public ports for media, RAS and H.245",
     [](LiveConfig& c, std::string_view v) { return readPortRange(c, v); }},
    {"mappings-per-host", "N", "most mappings that one private host may hold",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.mappingsPerHost, v, 1, 10000); }},
    {"media-idle", "SECONDS", "silence after which a mapping ends when its call is over",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.mediaIdle, v, 1, 86400); }},
    {"call-idle", "SECONDS", "silence after which a mapping ends while its call is open",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.callIdle, v, 1, 604800); }},
    {"registration-idle", "SECONDS", "silence after which the mapping of a RAS address ends",
     [](LiveConfig& c, std::string_view v) {
         return readNumber(c.registrationIdle, v, 1, 604800);
     }},
    {"sweep", "SECONDS", "how often idle mappings are looked for",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.sweepInterval, v, 1, 3600); }},
    {"strict", "yes|no", "encode changed messages anew instead of keeping all other octets",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.strict, v); }},
    {"queue", "h323|all", "packets shown to the module: those that can matter, or all TCP and UDP",
     [](LiveConfig& c, std::string_view v) -> std::string {
         if (v != "h323" && v != "all") {
             return "expected h323 or all";
         }
         c.queueScope = v == "all" ? QueueScope::All : QueueScope::H323;
         return {};
     }},
    {"queue-number", "N", "netfilter queue to use",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.queueNumber, v, 0, 65535); }},
    {"queue-length", "N", "packets that may wait in the queue; further ones pass unseen",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.queueLength, v, 1, 1000000); }},
    {"status-socket", "PATH", "Unix socket that answers `h323nat status`",
     [](LiveConfig& c, std::string_view v) { return readPath(c.statusSocket, v); }},
    {"metrics-file", "PATH", "file to keep up to date with metrics in the Prometheus text format",
     [](LiveConfig& c, std::string_view v) { return readPath(c.metricsFile, v); }},
    {"log-format", "logfmt|json", "form of the log lines",
     [](LiveConfig& c, std::string_view v) -> std::string {
         if (v != "logfmt" && v != "json") {
             return "expected logfmt or json";
         }
         c.logFormat = v == "json" ? LogFormat::Json : LogFormat::Logfmt;
         return {};
     }},
    {"log-level", "info|debug", "debug adds a line for each packet",
     [](LiveConfig& c, std::string_view v) -> std::string {
         if (v != "info" && v != "debug") {
             return "expected info or debug";
         }
         c.logDebug = v == "debug";
         return {};
     }},
};

} // namespace

std::span<const Setting> settings() {
    return table;
}

std::string applySetting(LiveConfig& config, std::string_view name, std::string_view value) {
    const auto* setting = std::find_if(std::begin(table), std::end(table),
                                       [&](const Setting& s) { return name == s.name; });
    if (setting == std::end(table)) {
        return "unknown setting '" + std::string(name) + "'; see h323nat.conf(5)";
    }
    const std::string wrong = setting->apply(config, value);
    return wrong.empty() ? wrong
                         : std::string(name) + ": '" + std::string(value) + "' is wrong, " + wrong;
}

std::string readConfig(LiveConfig& config, std::string_view text, std::string_view origin) {
    for (size_t line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view content = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        content = trim(content.substr(0, content.find('#')));
        if (content.empty()) {
            continue;
        }
        const std::string where = std::string(origin) + ":" + std::to_string(line) + ": ";
        const size_t equals = content.find('=');
        if (equals == std::string_view::npos) {
            return where + "expected 'setting = value', found '" + std::string(content) + "'";
        }
        const std::string wrong =
            applySetting(config, trim(content.substr(0, equals)), trim(content.substr(equals + 1)));
        if (!wrong.empty()) {
            return where + wrong;
        }
    }
    return {};
}

std::string checkConfig(const LiveConfig& config) {
    if (config.inside.empty()) {
        return "the inside interface is not set; give --inside IF or 'inside = IF' in the "
               "configuration file";
    }
    if (config.outside.empty()) {
        return "the outside interface is not set; give --outside IF or 'outside = IF' in the "
               "configuration file";
    }
    if (config.inside == config.outside) {
        return "inside and outside are the same interface, '" + config.inside + "'";
    }
    return {};
}

} // namespace gateway
