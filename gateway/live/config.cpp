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
bool isInterfaceName(std::string_view value) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '-' || c == '_' || c == '@' || c == ':';
    };
    return !value.empty() && value.size() <= 15 && std::all_of(value.begin(), value.end(), allowed);
}

std::string readInterface(std::string& out, std::string_view value) {
    if (!isInterfaceName(value)) {
        return "expected the name of a network interface, such as eth0";
    }
    out = value;
    return {};
}

// Hands each part of "a, b, c" to `read`, which answers false for a part that makes no sense.
template <typename Read> bool readList(std::string_view value, Read read) {
    for (;;) {
        const size_t comma = std::min(value.find(','), value.size());
        if (!read(trim(value.substr(0, comma)))) {
            return false;
        }
        if (comma == value.size()) {
            return true;
        }
        value.remove_prefix(comma + 1);
    }
}

std::string readInterfaces(std::vector<std::string>& out, std::string_view value) {
    std::vector<std::string> names;
    const bool understood = readList(value, [&](std::string_view name) {
        const bool pattern = name.size() > 1 && name.back() == '*';
        names.emplace_back(name);
        return isInterfaceName(pattern ? name.substr(0, name.size() - 1) : name);
    });
    if (!understood) {
        return "expected names of network interfaces, such as eth1 or eth1, vlan*";
    }
    out = names;
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

std::string readPublished(std::vector<PublishedHost>& out, std::string_view value) {
    std::vector<PublishedHost> hosts;
    const bool understood = readList(value, [&](std::string_view text) {
        const size_t colon = std::min(text.find(':'), text.size());
        const auto address = parseAddress(text.substr(0, colon));
        PublishedHost host{address.value_or(0), callSignalPort};
        if (colon != text.size() &&
            !readNumber(host.publicPort, text.substr(colon + 1), 1, 65535).empty()) {
            return false;
        }
        const auto same = [&](const PublishedHost& other) {
            return other.address == host.address || other.publicPort == host.publicPort;
        };
        if (std::any_of(hosts.begin(), hosts.end(), same)) {
            return false;
        }
        hosts.push_back(host);
        return host.address != 0;
    });
    if (!understood) {
        return "expected IPv4 addresses of private hosts, each with a public port of its own "
               "unless "
               "it is 1720, such as 10.0.0.5, 10.0.0.6:1721";
    }
    out = hosts;
    return {};
}

// "192.0.2.1:5555, 192.0.2.2:5555"
std::string readFeed(LiveConfig& config, std::string_view value) {
    std::vector<Endpoint> ends;
    const bool understood = readList(value, [&](std::string_view text) {
        const size_t colon = std::min(text.find(':'), text.size());
        Endpoint end{parseAddress(text.substr(0, colon)).value_or(0), 0};
        const bool port =
            colon != text.size() && readNumber(end.port, text.substr(colon + 1), 1, 65535).empty();
        ends.push_back(end);
        return port && end.address != 0;
    });
    if (!understood || ends.size() != 2) {
        return "expected OWN:PORT, PEER:PORT, such as 192.0.2.1:1721, 192.0.2.2:1721";
    }
    config.feedFrom = ends[0];
    config.feedTo = ends[1];
    return {};
}

std::string readMilliseconds(Milliseconds& out, std::string_view value) {
    uint32_t number = 0;
    std::string wrong = readNumber(number, value, 1, 5000);
    out = wrong.empty() ? number : out;
    return wrong;
}

// Segments that wait stay in the kernel's queue: they must leave room in it.
std::string readQueueLength(LiveConfig& config, std::string_view value) {
    std::string wrong = readNumber(config.queueLength, value, 1, 1000000);
    config.hold.allSegments = config.queueLength / 2;
    return wrong;
}

// `names` are the words for 0 and 1 of an enumeration.
template <typename Choice>
std::string readChoice(Choice& out, std::string_view value, std::string_view first,
                       std::string_view second) {
    if (value != first && value != second) {
        return "expected " + std::string(first) + " or " + std::string(second);
    }
    out = value == first ? Choice{0} : Choice{1};
    return {};
}

// Part of nft's commands.
std::string readTableName(std::string& out, std::string_view value) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    };
    if (value.empty() || value.size() > 31 || value.front() < 'a' ||
        !std::all_of(value.begin(), value.end(), allowed)) {
        return "expected a name of small letters, digits and '_', such as h323nat";
    }
    out = value;
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
    {"inside", "IF,...", "interfaces towards the private hosts; vlan* stands for all that begin so",
     [](LiveConfig& c, std::string_view v) { return readInterfaces(c.inside, v); }, nullptr},
    {"outside", "IF", "interface towards the Internet",
     [](LiveConfig& c, std::string_view v) { return readInterface(c.outside, v); }, nullptr},
    {"publish", "ADDRESS[:PORT],...",
     "private hosts that are called from outside without a gatekeeper",
     [](LiveConfig& c, std::string_view v) { return readPublished(c.published, v); }, nullptr},
    {"publish-t120", "yes|no", "forward TCP port 1503 to the host published on port 1720 as well",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.publishT120, v); }, "no"},
    {"public-address", "ADDRESS", "public address, if not the outside interface's own",
     [](LiveConfig& c, std::string_view v) { return readAddress(c.publicAddress, v); }, nullptr},
    {"advertise", "ADDRESS", "address that messages carry, if a further router has the public one",
     [](LiveConfig& c, std::string_view v) { return readAddress(c.advertisedAddress, v); },
     nullptr},
    {"masquerade", "yes|no", "translate the private hosts' connections, if no other rule does",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.masquerade, v); }, "no"},
    {"ports", "FIRST-LAST", "public ports for media, RAS and H.245",
     [](LiveConfig& c, std::string_view v) { return readPortRange(c, v); }, "20000-29999"},
    {"mappings-per-host", "N", "most mappings that one private host may hold",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.mappingsPerHost, v, 1, 10000); },
     "2000"},
    {"unanswered-per-host", "N", "registrations of one host that no gatekeeper has answered yet",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.unansweredPerHost, v, 1, 1000); },
     "4"},
    {"lowest-inside-port", "PORT", "ports of private hosts below it are never opened",
     [](LiveConfig& c, std::string_view v) {
         return readNumber(c.lowestInsidePort, v, 1024, 65535);
     },
     "1024"},
    {"media-source", "learned|any", "who may send media once a private host has sent some",
     [](LiveConfig& c, std::string_view v) {
         return readChoice(c.mediaSource, v, "learned", "any");
     },
     "learned"},
    {"media-idle", "SECONDS", "silence after which a mapping ends when its call is over",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.mediaIdle, v, 1, 86400); }, "90"},
    {"call-idle", "SECONDS", "silence after which a mapping ends while its call is open",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.callIdle, v, 1, 604800); },
     "3600"},
    {"registration-idle", "SECONDS", "silence after which the mapping of a RAS address ends",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.registrationIdle, v, 1, 604800); },
     "7200"},
    {"sweep", "SECONDS", "how often idle mappings are looked for",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.sweepInterval, v, 1, 3600); },
     "5"},
    {"scope", "full|listed", "translate every address, or the list of the module's contract",
     [](LiveConfig& c, std::string_view v) { return readChoice(c.scope, v, "full", "listed"); },
     "full"},
    {"calls", "N", "calls at once that are followed",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.calls, v, 1, 100000); }, "1000"},
    {"hold", "MILLISECONDS", "longest wait for the rest of a message over several segments",
     [](LiveConfig& c, std::string_view v) { return readMilliseconds(c.hold.longest, v); }, "300"},
    {"hold-octets", "N", "octets of all segments that wait",
     [](LiveConfig& c, std::string_view v) {
         return readNumber(c.hold.allOctets, v, 65536, 1073741824);
     },
     "4194304"},
    {"strict", "yes|no",
     "encode changed messages anew instead of keeping all other octets; the listed scope",
     [](LiveConfig& c, std::string_view v) {
         std::string wrong = readFlag(c.strict, v);
         c.scope = wrong.empty() && c.strict ? TranslationScope::Listed : c.scope;
         return wrong;
     },
     "no"},
    {"queue", "h323|all", "packets shown to the module: those that can matter, or all TCP and UDP",
     [](LiveConfig& c, std::string_view v) { return readChoice(c.queueScope, v, "h323", "all"); },
     "h323"},
    {"queue-number", "N", "netfilter queue to use",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.queueNumber, v, 0, 65535); },
     "1720"},
    {"queue-length", "N", "packets that may wait in the queue; further ones pass unseen",
     [](LiveConfig& c, std::string_view v) { return readQueueLength(c, v); }, "4096"},
    {"table", "NAME", "name of the nftables table",
     [](LiveConfig& c, std::string_view v) { return readTableName(c.table, v); }, "h323nat"},
    {"state-file", "PATH", "file that carries open mappings over a restart",
     [](LiveConfig& c, std::string_view v) { return readPath(c.stateFile, v); }, nullptr},
    {"feed", "OWN:PORT,PEER:PORT",
     "tell a second router, which stands in for this one, of mappings",
     [](LiveConfig& c, std::string_view v) { return readFeed(c, v); }, nullptr},
    {"status-socket", "PATH", "Unix socket that answers `h323nat status`",
     [](LiveConfig& c, std::string_view v) { return readPath(c.statusSocket, v); },
     "/run/h323nat/gateway.sock"},
    {"metrics-file", "PATH", "file to keep up to date with metrics in the Prometheus text format",
     [](LiveConfig& c, std::string_view v) { return readPath(c.metricsFile, v); }, nullptr},
    {"count-packets", "yes|no", "have the kernel count the packets of all connections",
     [](LiveConfig& c, std::string_view v) { return readFlag(c.countPackets, v); }, "yes"},
    {"keep-calls", "N", "calls whose messages are kept for `h323nat calls --html`; 0: none",
     [](LiveConfig& c, std::string_view v) { return readNumber(c.keepCalls, v, 0, 1000); }, "0"},
    {"capture-troubled", "DIR",
     "folder for captures of the last calls that were not all translated",
     [](LiveConfig& c, std::string_view v) { return readPath(c.captureTroubled, v); }, nullptr},
    {"log-format", "logfmt|json", "form of the log lines",
     [](LiveConfig& c, std::string_view v) { return readChoice(c.logFormat, v, "logfmt", "json"); },
     "logfmt"},
    {"log-level", "info|debug", "debug adds a line for each packet",
     [](LiveConfig& c, std::string_view v) { return readChoice(c.logDebug, v, "info", "debug"); },
     "info"},
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
    std::vector<std::string> seen;
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
            return (where + "expected 'setting = value', found '").append(content) + "'";
        }
        const std::string name(trim(content.substr(0, equals)));
        if (std::find(seen.begin(), seen.end(), name) != seen.end()) {
            return (where + "'").append(name) + "' is set twice";
        }
        seen.push_back(name);
        const std::string wrong = applySetting(config, name, trim(content.substr(equals + 1)));
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
    if (isInsideName(config, config.outside)) {
        return "'" + config.outside + "' is set as inside and as outside";
    }
    const auto isMapped = [&](uint16_t port) {
        return port >= config.firstPort && port <= config.lastPort;
    };
    if (config.publishT120 && isMapped(dataPort)) {
        return "publish-t120: port 1503 lies within 'ports'; choose a range without it";
    }
    for (const PublishedHost& host : config.published) {
        if (host.address == config.publicAddress || host.address == config.advertisedAddress) {
            return "publish: " + toText(host.address) +
                   " is the public address, not a private "
                   "host's";
        }
        if (isMapped(host.publicPort)) {
            return "publish: port " + std::to_string(host.publicPort) + " of " +
                   toText(host.address) + " lies within 'ports'; choose one outside of them";
        }
        if (config.publishT120 && host.publicPort == dataPort) {
            return "publish: port 1503 of " + toText(host.address) +
                   " is that of publish-t120; choose another";
        }
    }
    if (config.publishT120 && config.firstPublished() == 0) {
        return "publish-t120 = yes needs a host that is published on port 1720";
    }
    if (config.strict && config.scope == TranslationScope::Full) {
        return "strict = yes means scope = listed: the full scope writes addresses alone";
    }
    if (config.scope == TranslationScope::Listed && config.published.size() > 1) {
        return "scope = listed knows one published host; leave the others out or use scope = full";
    }
    return {};
}

uint32_t LiveConfig::firstPublished() const {
    for (const PublishedHost& host : published) {
        if (host.publicPort == callSignalPort) {
            return host.address;
        }
    }
    return 0;
}

std::string insideText(const LiveConfig& config) {
    std::string text;
    for (const std::string& name : config.inside) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

bool isInsideName(const LiveConfig& config, std::string_view name) {
    return std::any_of(config.inside.begin(), config.inside.end(), [&](std::string_view wanted) {
        return wanted.back() == '*' ? name.starts_with(wanted.substr(0, wanted.size() - 1))
                                    : name == wanted;
    });
}

} // namespace gateway
