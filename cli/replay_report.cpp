#include "cli/replay_report.h"

#include <nlohmann/json.hpp>

#include <array>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

namespace cli {
namespace {

using gateway::Direction;
using gateway::MappingRequest;
using gateway::ObservedMessage;
using gateway::ReplayTotals;
using gateway::Verdict;

// Packets that leave as they came, each with its name in JSON and in words.
struct Untouched {
    Verdict verdict;
    const char* field;
    const char* words;
};
constexpr Untouched untouched[] = {
    {Verdict::Fragment, "fragments", "IP fragments"},
    {Verdict::OtherProtocol, "otherProtocols", "neither TCP nor UDP"},
    {Verdict::NotIpv4, "notIpv4", "not IPv4"},
    {Verdict::Malformed, "malformed", "with contradictory lengths"},
    {Verdict::Local, "local", "between private hosts"},
    {Verdict::Foreign, "foreign", "neither from nor to a private host"},
    {Verdict::NoMapping, "noMapping", "from outside without a mapping"},
    {Verdict::NoPort, "noPort", "for which no public port was left"},
};

const char* wordFor(Direction direction) {
    return direction == Direction::Sent ? "sent" : "received";
}

const char* wordFor(MappingRequest::Kind kind) {
    return kind == MappingRequest::Kind::Media ? "media" : "control";
}

std::string nameOf(const ObservedMessage& message) {
    return message.description.decoded ? message.description.name : "undecodable";
}

std::string remoteOf(const MappingRequest& request) {
    return request.remoteAddress == UNKNOWN_REMOTE_ADDRESS ? "any"
                                                           : gateway::toText(request.remoteAddress);
}

std::string fraction(int32_t nanoseconds) {
    std::ostringstream text;
    text << std::setfill('0') << std::setw(9) << nanoseconds;
    std::string digits = text.str();
    // Microseconds unless the capture has more.
    return digits.compare(6, 3, "000") == 0 ? digits.substr(0, 6) : digits;
}

// RFC 3339 in UTC.
std::string timestamp(const gateway::CaptureTime& time) {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    if (std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
        return std::to_string(time.seconds);
    }
    return std::string(text.data()) + '.' + fraction(time.nanoseconds) + 'Z';
}

class TextReport final : public ReplayReport {
public:
    explicit TextReport(std::ostream& out) : out_(out) {}

    void onMapping(const gateway::CapturedFrame& frame, const MappingRequest& request) override {
        begin(frame) << "mapping   " << wordFor(request.kind) << ": "
                     << gateway::toText(request.inside);
        if (!request.granted) {
            out_ << " refused";
        } else {
            out_ << " → " << gateway::toText(request.publicEndpoint);
        }
        const std::string remote = remoteOf(request);
        out_ << " for " << (remote == "any" ? "any party" : remote)
             << (request.reused ? ", open before" : "") << '\n';
    }

    void onRewrite(const gateway::CapturedFrame& frame, Direction direction,
                   const ObservedMessage& message) override {
        begin(frame) << std::left << std::setw(10) << wordFor(direction) << nameOf(message);
        const char* separator = ": ";
        for (const auto& change : message.changes) {
            out_ << separator << change.field << ' ' << gateway::toText(change.from) << " → "
                 << gateway::toText(change.to);
            separator = ", ";
        }
        out_ << (message.changes.empty() ? " changed, but no address" : "") << '\n';
    }

    void onEnd(const ReplayTotals& totals) override {
        out_ << '\n'
             << totals.packets << " packets, " << totals.count(Verdict::Translated)
             << " translated";
        if (totals.truncated > 0) {
            out_ << " (" << totals.truncated << " cut off by the capture: headers only)";
        }
        out_ << '\n';
        for (const Untouched& group : untouched) {
            if (totals.count(group.verdict) > 0) {
                out_ << "  " << totals.count(group.verdict) << " untouched: " << group.words;
                if (group.verdict == Verdict::NotIpv4 && totals.ipv6 > 0) {
                    out_ << " (" << totals.ipv6 << " IPv6)";
                }
                out_ << '\n';
            }
        }
        out_ << totals.messages << " H.323 messages\n"
             << "  " << totals.rewritten << " rewritten\n"
             << "  " << totals.undecodable << " failed to decode\n"
             << "  " << totals.nothingToTranslate << " left alone: nothing to translate\n";
        if (totals.privateAddressKept > 0) {
            out_ << "  " << totals.privateAddressKept
                 << " left alone with a private address in them: h323nat(1) tells the causes\n";
        }
        out_ << totals.mappings << " mappings";
        if (totals.refusedMappings > 0) {
            out_ << ", " << totals.refusedMappings << " refused";
        }
        out_ << '\n';
    }

private:
    std::ostream& begin(const gateway::CapturedFrame& frame) {
        int64_t seconds = frame.time.seconds - frame.captureStart.seconds;
        int64_t nanoseconds = frame.time.nanoseconds - frame.captureStart.nanoseconds;
        if (nanoseconds < 0) {
            nanoseconds += 1000000000;
            --seconds;
        }
        return out_ << "frame " << std::left << std::setw(5) << frame.number << ' ' << std::right
                    << std::setw(3) << seconds << '.' << fraction(static_cast<int32_t>(nanoseconds))
                    << "  ";
    }

    std::ostream& out_;
};

class JsonReport final : public ReplayReport {
public:
    explicit JsonReport(std::ostream& out) : out_(out) {}

    void onMapping(const gateway::CapturedFrame& frame, const MappingRequest& request) override {
        Json line = begin("mapping", frame);
        line["kind"] = wordFor(request.kind);
        line["private"] = gateway::toText(request.inside);
        line["public"] = gateway::toText(request.publicEndpoint);
        line["remote"] = remoteOf(request);
        line["granted"] = request.granted;
        line["reused"] = request.reused;
        write(line);
    }

    void onRewrite(const gateway::CapturedFrame& frame, Direction direction,
                   const ObservedMessage& message) override {
        Json line = begin("rewrite", frame);
        line["direction"] = wordFor(direction);
        line["message"] = nameOf(message);
        line["changes"] = Json::array();
        for (const auto& change : message.changes) {
            line["changes"].push_back({{"field", change.field},
                                       {"from", gateway::toText(change.from)},
                                       {"to", gateway::toText(change.to)}});
        }
        write(line);
    }

    void onEnd(const ReplayTotals& totals) override {
        Json line;
        line["type"] = "summary";
        line["packets"] = totals.packets;
        line["messages"] = totals.messages;
        line["rewritten"] = totals.rewritten;
        line["undecodable"] = totals.undecodable;
        line["leftAlone"] = {{"nothingToTranslate", totals.nothingToTranslate},
                             {"privateAddressKept", totals.privateAddressKept}};
        line["rewrittenPackets"] = totals.rewrittenPackets;
        line["mappings"] = totals.mappings;
        line["refusedMappings"] = totals.refusedMappings;
        line["translated"] = totals.count(Verdict::Translated);
        line["truncated"] = totals.truncated;
        Json groups;
        for (const Untouched& group : untouched) {
            groups[group.field] = totals.count(group.verdict);
        }
        groups["ipv6"] = totals.ipv6;
        line["untouched"] = groups;
        write(line);
    }

private:
    using Json = nlohmann::ordered_json;

    static Json begin(const char* type, const gateway::CapturedFrame& frame) {
        Json line;
        line["type"] = type;
        line["frame"] = frame.number;
        line["time"] = timestamp(frame.time);
        return line;
    }

    void write(const Json& line) { out_ << line.dump() << '\n'; }

    std::ostream& out_;
};

} // namespace

std::unique_ptr<ReplayReport> makeTextReport(std::ostream& out) {
    return std::make_unique<TextReport>(out);
}

std::unique_ptr<ReplayReport> makeJsonReport(std::ostream& out) {
    return std::make_unique<JsonReport>(out);
}

} // namespace cli
