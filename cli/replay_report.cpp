#include "cli/replay_report.h"

#include "gateway/capture_time.h"

#include <nlohmann/json.hpp>

#include <iomanip>
#include <string>
#include <utility>

namespace cli {
namespace {

using gateway::MappingRequest;
using gateway::ReplayTotals;
using gateway::ReportedAddress;
using gateway::ReportedMessage;
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
    {Verdict::Repetition, "repetitions", "repeated while their message was waited for, left out"},
};

const char* directionOf(const ReportedMessage& message) {
    return message.direction == H323NAT_SENT ? "sent" : "received";
}

const char* wordFor(MappingRequest::Kind kind) {
    return kind == MappingRequest::Kind::Media ? "media" : "control";
}

std::string nameOf(const ReportedMessage& message) {
    return message.name.empty() ? "unknown" : message.name;
}

bool isUnread(const ReportedMessage& message) {
    return (message.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) != 0;
}

std::string fieldOf(const ReportedAddress& address) {
    return gateway::shortPath(address.path);
}

std::string remoteOf(const MappingRequest& request) {
    return request.remoteAddress == UNKNOWN_REMOTE_ADDRESS ? "any"
                                                           : gateway::toText(request.remoteAddress);
}

class TextReport final : public ReplayReport {
public:
    TextReport(std::ostream& out, bool coloured) : out_(out), coloured_(coloured) {}

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

    void onMessage(const gateway::CapturedFrame& frame, const ReportedMessage& message,
                   const std::vector<ReportedAddress>& remaining) override {
        if (!message.rewritten.empty()) {
            begin(frame) << std::left << colour(green) << std::setw(10) << directionOf(message)
                         << colour(plain) << nameOf(message);
            const char* separator = ": ";
            for (const ReportedAddress& address : message.rewritten) {
                out_ << separator << fieldOf(address) << ' ' << gateway::toText(address.from)
                     << " → " << gateway::toText(address.to);
                separator = ", ";
            }
            out_ << '\n';
        }
        if (isUnread(message)) {
            begin(frame) << std::left << colour(red) << std::setw(10) << "unread" << colour(plain)
                         << nameOf(message) << ": makes no sense from some point on\n";
        }
        for (const ReportedAddress& address : remaining) {
            begin(frame) << std::left << colour(red) << std::setw(10) << "left" << colour(plain)
                         << nameOf(message) << ": " << fieldOf(address) << ' '
                         << gateway::toText(address.from) << ": "
                         << gateway::leftCauseText(address.cause) << '\n';
        }
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
             << "  " << totals.rewritten << " rewritten";
        if (totals.rewrittenPackets != totals.rewritten) {
            out_ << ", in " << totals.rewrittenPackets << " packets";
        }
        out_ << "\n  " << totals.undecodable << " failed to decode\n"
             << "  " << totals.nothingToTranslate << " left alone: nothing to translate\n";
        if (totals.privateAddressKept > 0) {
            out_ << "  " << totals.privateAddressKept
                 << " left alone with a private address in them\n";
        }
        if (totals.addressesKept > 0) {
            out_ << totals.addressesKept << " private addresses went out: see \"left\" above\n";
        }
        if (totals.hold.held > 0) {
            out_ << totals.hold.held << " segments waited for the rest of their message";
            writeInVain(totals.hold);
            out_ << '\n';
        }
        out_ << totals.mappings << " mappings";
        if (totals.refusedMappings > 0) {
            out_ << ", " << totals.refusedMappings << " refused";
        }
        out_ << '\n';
    }

private:
    void writeInVain(const gateway::HoldCounts& counts) {
        const std::pair<uint64_t, const char*> causes[] = {
            {counts.late, " too long"},
            {counts.crowded, " while too many waited"},
            {counts.broken, " for none that followed"},
        };
        for (const auto& [count, words] : causes) {
            if (count > 0) {
                out_ << ", " << count << words;
            }
        }
    }

    std::ostream& begin(const gateway::CapturedFrame& frame) {
        return out_ << "frame " << std::left << std::setw(5) << frame.number << ' ' << std::right
                    << std::setw(10)
                    << gateway::secondsText(gateway::nanosecondsOf(frame.time) -
                                            gateway::nanosecondsOf(frame.captureStart))
                    << "  ";
    }

    static constexpr const char* green = "\033[32m";
    static constexpr const char* red = "\033[31m";
    static constexpr const char* plain = "\033[0m";

    [[nodiscard]] const char* colour(const char* sequence) const {
        return coloured_ ? sequence : "";
    }

    std::ostream& out_;
    bool coloured_;
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

    void onMessage(const gateway::CapturedFrame& frame, const ReportedMessage& message,
                   const std::vector<ReportedAddress>& remaining) override {
        if (!message.rewritten.empty()) {
            Json line = begin("rewrite", frame);
            line["direction"] = directionOf(message);
            line["message"] = nameOf(message);
            line["changes"] = Json::array();
            for (const ReportedAddress& address : message.rewritten) {
                line["changes"].push_back({{"field", address.path},
                                           {"from", gateway::toText(address.from)},
                                           {"to", gateway::toText(address.to)}});
            }
            write(line);
        }
        if (isUnread(message)) {
            Json line = begin("unread", frame);
            line["direction"] = directionOf(message);
            line["message"] = nameOf(message);
            write(line);
        }
        for (const ReportedAddress& address : remaining) {
            Json line = begin("left", frame);
            line["direction"] = directionOf(message);
            line["message"] = nameOf(message);
            line["field"] = address.path;
            line["address"] = gateway::toText(address.from);
            line["cause"] = gateway::leftCauseName(address.cause);
            write(line);
        }
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
        line["addressesKept"] = totals.addressesKept;
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
        line["held"] = {{"segments", totals.hold.held}, {"completed", totals.hold.completed},
                        {"late", totals.hold.late},     {"crowded", totals.hold.crowded},
                        {"broken", totals.hold.broken}, {"repeated", totals.hold.repeated}};
        write(line);
    }

private:
    using Json = nlohmann::ordered_json;

    static Json begin(const char* type, const gateway::CapturedFrame& frame) {
        Json line;
        line["type"] = type;
        line["frame"] = frame.number;
        line["time"] = gateway::timestampText(frame.time);
        return line;
    }

    void write(const Json& line) { out_ << line.dump() << '\n'; }

    std::ostream& out_;
};

} // namespace

std::unique_ptr<ReplayReport> makeTextReport(std::ostream& out, bool coloured) {
    return std::make_unique<TextReport>(out, coloured);
}

std::unique_ptr<ReplayReport> makeJsonReport(std::ostream& out) {
    return std::make_unique<JsonReport>(out);
}

} // namespace cli
