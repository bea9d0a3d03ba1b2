#include "gateway/capture_time.h"
#include "report/drawing.h"
#include "report/markup.h"

#include <algorithm>
#include <string>
#include <utility>

namespace report {
namespace {

using gateway::toText;

constexpr int width = 1000;
constexpr int barLeft = 370;
constexpr int barRight = 840;
constexpr int headHeight = 26;
constexpr int rowHeight = 26;
constexpr size_t mostRows = 200;

class Timeline {
public:
    Timeline(std::ostream& out, const CallRecord& record) : out_(out), record_(record) {
        start_ = record.start;
        end_ = std::max(record.ended, record.messages.back().time);
        for (const MediaStream& stream : record.streams) {
            for (const PacketRun* run : {&stream.sent, &stream.received, &stream.lost}) {
                if (run->packets > 0) {
                    start_ = std::min(start_, run->first);
                    end_ = std::max(end_, run->last);
                }
            }
        }
    }

    void draw() {
        const size_t mappings = std::min(record_.mappings.size(), mostRows);
        const size_t streams = std::min(record_.streams.size(), mostRows);
        const int height = headHeight + rowHeight * static_cast<int>(mappings + streams) + 4;
        out_ << "<svg class=\"streams\" viewBox=\"0 0 " << width << ' ' << height
             << "\" role=\"img\" aria-label=\"Mappings and media\">\n";
        drawTicks(height);
        int y = headHeight;
        for (size_t i = 0; i < mappings; ++i, y += rowHeight) {
            drawMapping(record_.mappings[i], y);
        }
        for (size_t i = 0; i < streams; ++i, y += rowHeight) {
            drawStream(record_.streams[i], y);
        }
        out_ << "</svg>\n";
        const size_t hidden = record_.mappings.size() + record_.streams.size() - mappings - streams;
        if (hidden > 0) {
            out_ << "<p>And " << hidden << " more.</p>\n";
        }
    }

private:
    [[nodiscard]] int xOf(int64_t time) const {
        const double part = end_ <= start_
                                ? 0.0
                                : static_cast<double>(std::clamp(time, start_, end_) - start_) /
                                      static_cast<double>(end_ - start_);
        return barLeft + static_cast<int>(part * (barRight - barLeft));
    }

    // Labels of times that lie close together share a text.
    void drawTicks(int height) {
        constexpr int room = 60;
        const std::pair<int64_t, const char*> ticks[] = {
            {record_.start, "start"}, {record_.connected, "connect"}, {record_.ended, "end"}};
        std::string label;
        int labelX = -room;
        const auto flush = [&] {
            if (!label.empty()) {
                out_ << "<text class=\"tick\" x=\"" << labelX << "\" y=\"12\">" << label
                     << "</text>\n";
            }
        };
        for (const auto& [time, text] : ticks) {
            if (time == never) {
                continue;
            }
            const int x = xOf(time);
            out_ << "<path class=\"tick\" d=\"M" << x << " 16V" << height << "\"/>\n";
            if (x - labelX < room) {
                label += std::string(", ") + text;
                continue;
            }
            flush();
            label = text;
            labelX = x;
        }
        flush();
    }

    void bar(const char* style, int64_t first, int64_t last, int y, int height) {
        const int left = xOf(first);
        out_ << "<rect class=\"" << style << "\" x=\"" << left << "\" y=\"" << y << "\" width=\""
             << std::max(xOf(last) - left, 3) << "\" height=\"" << height << "\"/>";
    }

    void label(const std::string& text, int y) {
        out_ << "<text x=\"4\" y=\"" << y + 16 << "\">" << escaped(text) << "</text>";
    }

    void note(const char* style, const std::string& text, int y) {
        out_ << "<text class=\"" << style << "\" x=\"" << barRight + 10 << "\" y=\"" << y + 16
             << "\">" << escaped(text) << "</text>";
    }

    void drawMapping(const MappingRecord& mapping, int y) {
        const gateway::MappingRequest& request = mapping.request;
        const bool media = request.kind == gateway::MappingRequest::Kind::Media;
        out_ << "<g class=\"mapping\">";
        label(std::string(media ? "UDP mapping " : "TCP mapping ") + toText(request.inside) +
                  " → " + (request.granted ? toText(request.publicEndpoint) : "refused"),
              y);
        if (request.granted) {
            bar("open", mapping.time, end_, y + 8, 10);
            note("state", request.reused ? "open before" : "open", y);
        } else {
            note("state trouble", "refused", y);
        }
        out_ << "</g>\n";
    }

    void drawStream(const MediaStream& stream, int y) {
        const bool isVoid = stream.state == StreamState::Void;
        out_ << "<g class=\"stream\" data-sent=\"" << stream.sent.packets << "\" data-received=\""
             << stream.received.packets << "\" data-lost=\"" << stream.lost.packets
             << "\" data-state=\"" << stateText(stream.state) << "\">";
        label(std::string(stream.control ? "RTCP " : "media ") + toText(stream.inside) + " ↔ " +
                  (stream.remote.port == 0 ? "nobody" : toText(stream.remote)),
              y);
        if (stream.sent.packets > 0) {
            bar("sent", stream.sent.first, stream.sent.last, y + 5, 6);
        }
        if (stream.received.packets > 0) {
            bar(isVoid ? "void" : "received", stream.received.first, stream.received.last, y + 14,
                6);
        }
        if (stream.lost.packets > 0) {
            bar("void", stream.lost.first, stream.lost.last, y + 14, 6);
        }
        std::string counts = "→ " + std::to_string(stream.sent.packets) + "  ← " +
                             std::to_string(stream.received.packets);
        if (stream.lost.packets > 0) {
            counts += " lost " + std::to_string(stream.lost.packets);
        }
        const bool good = stream.state == StreamState::BothWays ||
                          stream.state == StreamState::Silent ||
                          stream.state == StreamState::Uncounted;
        if (stream.state == StreamState::Uncounted) {
            counts.clear();
        }
        note(good ? "state" : "state trouble",
             counts + (isVoid ? " ✗ " : " ") + stateText(stream.state), y);
        out_ << "</g>\n";
    }

    std::ostream& out_;
    const CallRecord& record_;
    int64_t start_ = 0;
    int64_t end_ = 0;
};

} // namespace

const char* stateText(StreamState state) {
    switch (state) {
    case StreamState::BothWays:
        return "both ways";
    case StreamState::SentOnly:
        return "sent only";
    case StreamState::ReceivedOnly:
        return "received only";
    case StreamState::Void:
        return "into the void";
    case StreamState::Uncounted:
        return "not counted";
    case StreamState::Silent:
        break;
    }
    return "no packets";
}

void drawStreams(std::ostream& out, const CallRecord& record) {
    if (!record.messages.empty() && record.mappings.size() + record.streams.size() > 0) {
        Timeline(out, record).draw();
    }
}

} // namespace report
