#include "gateway/live/status.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace gateway {
namespace {

using nlohmann::json;

json callJson(const LiveCall& call, LiveSeconds now) {
    return {{"direction", call.inbound ? "in" : "out"},
            {"inside", toText(call.flow.local)},
            {"remote", toText(call.flow.remote)},
            {"seconds", now - call.started}};
}

json mappingJson(const LiveMapping& mapping, uint32_t publicAddress, LiveSeconds now) {
    return {{"kind", nameOf(mapping.kind)},
            {"inside", toText(mapping.inside)},
            {"public", toText(Endpoint{publicAddress, mapping.publicPort})},
            {"ports", mapping.ports()},
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

void delayMetrics(std::ostringstream& out, const DelayHistogram& delay) {
    out << "# HELP h323nat_packet_delay_microseconds time that packets spent with the gateway\n"
           "# TYPE h323nat_packet_delay_microseconds histogram\n";
    uint64_t seen = 0;
    for (size_t index = 0; index + 1 < DelayHistogram::buckets; ++index) {
        seen += delay.bucket(index);
        out << "h323nat_packet_delay_microseconds_bucket{le=\"" << (uint64_t{1} << index) << "\"} "
            << seen << '\n';
    }
    out << "h323nat_packet_delay_microseconds_bucket{le=\"+Inf\"} " << delay.total() << '\n'
        << "h323nat_packet_delay_microseconds_count " << delay.total() << '\n';
}

} // namespace

std::string statusJson(const StatusSource& source) {
    const LiveGateway& gateway = source.gateway;
    json status = {{"inside", gateway.config().inside},
                   {"outside", gateway.config().outside},
                   {"public", toText(gateway.publicAddress())},
                   {"dry_run", gateway.config().dryRun},
                   {"uptime", source.now - source.started},
                   {"resident_kib", residentKibibytes()},
                   {"call_total", gateway.calls().size()},
                   {"mapping_total", gateway.mappings().all().size()},
                   {"delay_us_median", source.counters.delay.quantileMicroseconds(0.5)},
                   {"delay_us_p99", source.counters.delay.quantileMicroseconds(0.99)},
                   {"calls", json::array()},
                   {"mappings", json::array()},
                   {"counters", json::object()}};
    if (gateway.config().publishedHost != 0) {
        status["published"] = toText(gateway.config().publishedHost);
    }
    for (const auto& [flow, call] : gateway.calls()) {
        if (status["calls"].size() < statusListLimit) {
            status["calls"].push_back(callJson(call, source.now));
        }
    }
    for (const LiveMapping& mapping : gateway.mappings().all()) {
        if (status["mappings"].size() < statusListLimit) {
            status["mappings"].push_back(mappingJson(mapping, gateway.publicAddress(), source.now));
        }
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
        out << "  " << (word(call, "direction") == "in" ? "in   " : "out  ") << word(call, "inside")
            << "  " << word(call, "remote") << "  " << call.at("seconds") << " s\n";
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
    gauge(out, "calls", "call-signalling connections now", source.gateway.calls().size());
    gauge(out, "mappings", "mappings now", source.gateway.mappings().all().size());
    gauge(out, "uptime_seconds", "seconds since the start",
          static_cast<uint64_t>(source.now - source.started));
    delayMetrics(out, source.counters.delay);
    return out.str();
}

std::string writeMetricsFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    {
        std::ofstream file(temporary, std::ios::trunc);
        file << text;
        if (!file.flush()) {
            return "cannot write '" + temporary + "': " + std::strerror(errno);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        return "cannot rename '" + temporary + "' to '" + path + "': " + std::strerror(errno);
    }
    return {};
}

} // namespace gateway
