#include "gateway/live/status.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <fstream>
#include <iomanip>
#include <sstream>

namespace gateway {
namespace {

using nlohmann::json;

json callJson(const LiveCall& call, LiveSeconds now) {
    json text = {{"call", call.number},
                 {"direction", call.inbound ? "in" : "out"},
                 {"inside", toText(call.inside)},
                 {"remote", toText(call.remote)},
                 {"identifier", call.identifier},
                 {"from", call.calling},
                 {"to", call.called},
                 {"verdict", call.verdict()},
                 {"addresses_rewritten", call.rewritten},
                 {"seconds", (call.ended != 0 ? call.ended : now) - call.started}};
    if (call.connected != 0) {
        text["connected_after"] = call.connected - call.started;
    }
    if (call.ended != 0) {
        text["ended_ago"] = now - call.ended;
        text["end"] = call.number == 0 ? "missed" : endName(call.end);
        text["cause"] = call.cause;
    }
    if (call.counted) {
        text["signalling_sent"] = call.signalling.sent;
        text["signalling_received"] = call.signalling.received;
        text["media_sent"] = call.media.sent;
        text["media_received"] = call.media.received;
    }
    return text;
}

const char* kindText(const LiveMapping& mapping) {
    switch (mapping.role) {
    case H323NAT_ROLE_SIGNALLING:
        return "signalling";
    case H323NAT_ROLE_T120:
        return "t120";
    default:
        return nameOf(mapping.kind);
    }
}

json mappingJson(const LiveMapping& mapping, LiveSeconds now) {
    return {{"kind", kindText(mapping)},
            {"inside", toText(mapping.inside)},
            {"public", toText(mapping.publicEndpoint)},
            {"ports", mapping.ports()},
            {"call", mapping.call},
            {"seconds", now - mapping.opened},
            {"idle", now - mapping.lastUse},
            {"adopted", mapping.adopted}};
}

// Pages that the process holds in memory, in KiB; 0 where /proc is not there.
uint64_t residentKibibytes() {
    std::ifstream file("/proc/self/statm");
    uint64_t total = 0;
    uint64_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

void gauge(std::ostringstream& out, const char* name, const char* help, uint64_t value) {
    out << "# HELP h323nat_" << name << ' ' << help << "\n# TYPE h323nat_" << name
        << " gauge\nh323nat_" << name << ' ' << value << '\n';
}

// In seconds, as the format's users expect.
void delayMetrics(std::ostringstream& out, const char* name, const char* help,
                  const DelayHistogram& delay) {
    const std::string metric = std::string("h323nat_") + name + "_seconds";
    out << "# HELP " << metric << ' ' << help << "\n# TYPE " << metric << " histogram\n";
    uint64_t seen = 0;
    for (size_t index = 0; index + 1 < DelayHistogram::buckets; ++index) {
        seen += delay.bucket(index);
        out << metric << "_bucket{le=\"" << static_cast<double>(uint64_t{1} << index) / 1e6
            << "\"} " << seen << '\n';
    }
    out << metric << "_bucket{le=\"+Inf\"} " << delay.total() << '\n'
        << metric << "_sum " << static_cast<double>(delay.sum()) / 1e9 << '\n'
        << metric << "_count " << delay.total() << '\n';
}

template <typename Iterator, typename Describe>
json listOf(Iterator first, Iterator last, Describe describe) {
    json list = json::array();
    for (; first != last && list.size() < statusListLimit; ++first) {
        list.push_back(describe(*first));
    }
    return list;
}

std::string publishedText(const LiveConfig& config) {
    std::string text;
    for (const PublishedHost& host : config.published) {
        text += (text.empty() ? "" : ", ") + toText(host.address) +
                (host.publicPort == 1720 ? "" : ":" + std::to_string(host.publicPort));
    }
    return text;
}

std::string callLine(const json& call) {
    const auto word = [&](const char* name) { return call.at(name).get<std::string>(); };
    std::ostringstream line;
    line << (word("direction") == "in" ? "in   " : "out  ") << std::left << std::setw(21)
         << word("inside") << ' ' << std::setw(21) << word("remote") << ' ' << std::right
         << std::setw(6) << call.at("seconds").get<int64_t>() << " s  " << mediaText(call)
         << word("verdict");
    return line.str();
}

} // namespace

std::string mediaText(const json& call) {
    return call.contains("media_sent") ? "→ " + call.at("media_sent").dump() + " ← " +
                                             call.at("media_received").dump() + "  "
                                       : "";
}

std::string statusJson(const StatusSource& source) {
    const LiveGateway& gateway = source.gateway;
    const LiveConfig& config = gateway.config();
    const LiveCalls& calls = gateway.calls();
    const auto& mappings = gateway.mappings().all();
    json status = {
        {"inside", insideText(config)},
        {"outside", config.outside},
        {"public", toText(gateway.publicAddress())},
        {"dry_run", config.dryRun},
        {"uptime", source.now - source.started},
        {"resident_kib", residentKibibytes()},
        {"scope", config.scope == TranslationScope::Full ? "full" : "listed"},
        {"call_total", calls.running().size()},
        {"mapping_total", mappings.size()},
        {"delay_us_median", source.counters.delay.quantileMicroseconds(0.5)},
        {"delay_us_p99", source.counters.delay.quantileMicroseconds(0.99)},
        {"hold_us_median", source.counters.hold.quantileMicroseconds(0.5)},
        {"hold_us_p99", source.counters.hold.quantileMicroseconds(0.99)},
        {"calls", listOf(calls.running().begin(), calls.running().end(),
                         [&](const auto& each) { return callJson(each.second, source.now); })},
        {"ended_calls", listOf(calls.ended().rbegin(), calls.ended().rend(),
                               [&](const LiveCall& each) { return callJson(each, source.now); })},
        {"mappings",
         listOf(mappings.begin(), mappings.end(),
                [&](const LiveMapping& each) { return mappingJson(each, source.now); })},
        {"counters", json::object()}};
    if (!config.published.empty()) {
        status["published"] = publishedText(config);
    }
    if (config.advertisedAddress != 0) {
        status["advertised"] = toText(config.advertisedAddress);
    }
    for (size_t index = 0; index < causeTexts().size(); ++index) {
        status["counters"][causeTexts()[index].name] =
            source.counters.of(static_cast<Cause>(index));
    }
    return status.dump() + "\n";
}

std::string statusText(const std::string& statusJson) {
    const json status = json::parse(statusJson);
    const auto word = [](const json& object, const char* name) {
        return object.at(name).get<std::string>();
    };
    std::ostringstream out;
    out << "h323nat gateway: " << word(status, "inside") << " to " << word(status, "outside")
        << " as " << word(status, "public");
    if (status.contains("published")) {
        out << ", calls from outside go to " << word(status, "published");
    }
    out << (status.at("dry_run").get<bool>() ? " (dry run: nothing is changed)\n" : "\n") << "up "
        << status.at("uptime") << " s, " << status.at("resident_kib") << " KiB, packets "
        << "stay " << status.at("delay_us_median") << " us (median), " << status.at("delay_us_p99")
        << " us (99 of 100)\n\ncalls: " << status.at("call_total") << '\n';
    for (const json& call : status.at("calls")) {
        out << "  " << callLine(call) << '\n';
    }
    out << "\nmappings: " << status.at("mapping_total") << '\n';
    for (const json& mapping : status.at("mappings")) {
        out << "  " << word(mapping, "kind") << "  " << word(mapping, "inside") << "  "
            << word(mapping, "public") << "  open " << mapping.at("seconds") << " s, idle "
            << mapping.at("idle") << " s\n";
    }
    out << "\ncounters:\n";
    for (const auto& [name, value] : status.at("counters").items()) {
        if (value != 0) {
            out << "  " << name << ' ' << value << '\n';
        }
    }
    return out.str();
}

std::string metricsText(const StatusSource& source) {
    std::ostringstream out;
    for (size_t index = 0; index < causeTexts().size(); ++index) {
        const CauseText& text = causeTexts()[index];
        out << "# HELP h323nat_" << text.name << "_total " << text.description
            << "\n# TYPE h323nat_" << text.name << "_total counter\nh323nat_" << text.name
            << "_total " << source.counters.of(static_cast<Cause>(index)) << '\n';
    }
    gauge(out, "calls", "calls now", source.gateway.calls().running().size());
    gauge(out, "mappings", "mappings now", source.gateway.mappings().all().size());
    gauge(out, "uptime_seconds", "seconds since the start",
          static_cast<uint64_t>(source.now - source.started));
    delayMetrics(out, "packet_delay", "time that packets spent with the gateway",
                 source.counters.delay);
    delayMetrics(out, "segment_hold", "time that segments waited for the rest of their message",
                 source.counters.hold);
    return out.str();
}

std::string callsText(const std::string& statusJson) {
    const json status = json::parse(statusJson);
    std::ostringstream out;
    for (const json& call : status.at("ended_calls")) {
        out << std::setw(6) << call.at("ended_ago").get<int64_t>() << " s ago  " << callLine(call)
            << "  " << call.at("end").get<std::string>();
        if (call.at("cause") != 0) {
            out << ", cause " << call.at("cause");
        }
        out << '\n';
    }
    return out.str();
}

} // namespace gateway
