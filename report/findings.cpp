#include "report/findings.h"

#include "report/flow_runs.h"

#include <algorithm>
#include <set>
#include <utility>

namespace report {
namespace {

using gateway::toText;

constexpr const char* translated = "translated";
constexpr const char* nothingToTranslate = "nothing to translate";

std::string otherSide(const MediaStream& stream, const CallRecord& record) {
    return toText(stream.remote.port != 0 ? stream.remote.address : record.outside.address);
}

const char* nameOf(const MediaStream& stream) {
    return stream.control ? "RTCP" : "media";
}

std::string packets(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " packet" : " packets");
}

class Judge {
public:
    Judge(CallRecord& record, const gateway::Network& inside) : record_(record), inside_(inside) {}

    void run() {
        mappings();
        streams();
        addresses();
        conclude();
    }

private:
    void add(Severity severity, const std::string& text, size_t message = SIZE_MAX) {
        record_.findings.push_back({severity, text, message});
    }

    void say(const char* verdict) {
        if (record_.verdict.empty()) {
            record_.verdict = verdict;
        }
    }

    void mappings() {
        for (const MappingRecord& mapping : record_.mappings) {
            if (!mapping.request.granted) {
                add(Severity::Trouble,
                    "The router opened no port for " + toText(mapping.request.inside) + '.');
                say("mapping refused");
            }
        }
    }

    void unreachable(const MediaStream& stream) {
        const LadderMessage& teller = record_.messages.at(stream.teller);
        std::string text = otherSide(stream, record_) + " was told to send " + nameOf(stream) +
                           " to " + toText(stream.told) + " (" + teller.content.name;
        if (teller.frame != 0) {
            text += ", frame " + std::to_string(teller.frame);
        }
        text += "), an address that only the private network knows, because ";
        text += stream.leftCause == 0 ? "nothing translated it"
                                      : gateway::leftCauseText(stream.leftCause);
        text += ". What is sent there does not arrive: " + toText(stream.inside.address) +
                (stream.control ? " gets no RTCP." : " hears nothing.");
        if (stream.received.packets > 0) {
            text += " What was received here, " + packets(stream.received.packets) +
                    ", is in the capture because it was made where no router stood between.";
        }
        add(Severity::Trouble, text, stream.teller);
    }

    void oneWay(const MediaStream& stream, bool sent) {
        const std::string other = otherSide(stream, record_);
        const std::string own = toText(stream.inside.address);
        add(Severity::Trouble,
            sent ? packets(stream.sent.packets) + " of media went from " + own + " to " + other +
                       " and none came back: " + own + " hears nothing."
                 : packets(stream.received.packets) + " of media came from " + other + " to " +
                       own + " and none went back: " + other + " hears nothing.",
            stream.teller);
    }

    void streams() {
        bool sent = false;
        bool received = false;
        for (const MediaStream& stream : record_.streams) {
            if (!stream.control) {
                sent = sent || stream.sent.packets > 0;
                received = received || stream.received.packets > 0;
            }
        }
        for (const MediaStream& stream : record_.streams) {
            if (stream.state == StreamState::Void) {
                if (stream.told.port != 0 && inside_.contains(stream.told.address)) {
                    unreachable(stream);
                } else {
                    add(Severity::Trouble,
                        packets(stream.lost.packets) + " of " + nameOf(stream) + " for " +
                            toText(stream.inside) + " met no mapping and got lost.",
                        stream.teller);
                }
                if (!stream.control) {
                    say("media into the void");
                }
            } else if (!stream.control && sent != received &&
                       (stream.state == StreamState::SentOnly ||
                        stream.state == StreamState::ReceivedOnly)) {
                oneWay(stream, sent);
                say("media one way");
            }
        }
    }

    // Places of media are told with their streams.
    [[nodiscard]] std::set<std::pair<size_t, uint64_t>> placesOfStreams() const {
        std::set<std::pair<size_t, uint64_t>> places;
        for (const MediaStream& stream : record_.streams) {
            if (stream.state == StreamState::Void) {
                places.emplace(stream.teller, FlowRuns::key(stream.inside));
            }
        }
        return places;
    }

    void addresses() {
        const auto told = placesOfStreams();
        for (size_t i = 0; i < record_.messages.size(); ++i) {
            const LadderMessage& message = record_.messages[i];
            if ((message.content.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) != 0) {
                add(Severity::Trouble,
                    "A message made no sense from some point on and stayed as "
                    "it was there.",
                    i);
                say("message not understood");
            }
            std::set<std::string> texts;
            for (const gateway::ReportedAddress& address : message.remaining) {
                if (!told.contains({i, FlowRuns::key(address.from)})) {
                    texts.insert(message.content.name + " told " + toText(address.from) + " in " +
                                 gateway::shortPath(address.path) + ": " +
                                 gateway::leftCauseText(address.cause) + '.');
                }
            }
            for (const std::string& text : texts) {
                add(Severity::Note, text, i);
            }
            if (!message.remaining.empty()) {
                kept_ = true;
            }
            rewritten_ = rewritten_ || !message.content.rewritten.empty();
        }
    }

    void conclude() {
        std::stable_sort(
            record_.findings.begin(), record_.findings.end(),
            [](const Finding& a, const Finding& b) { return a.severity > b.severity; });
        if (kept_) {
            say("private address kept");
        }
        say(rewritten_ ? translated : nothingToTranslate);
    }

    CallRecord& record_;
    gateway::Network inside_;
    bool kept_ = false;
    bool rewritten_ = false;
};

} // namespace

bool isGood(const CallRecord& record) {
    return record.verdict == translated || record.verdict == nothingToTranslate;
}

void judge(CallRecord& record, const gateway::Network& inside) {
    Judge(record, inside).run();
}

} // namespace report
