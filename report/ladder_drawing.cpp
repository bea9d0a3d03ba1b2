#include "gateway/capture_time.h"
#include "report/drawing.h"
#include "report/markup.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace report {
namespace {

using gateway::toText;

constexpr int width = 1000;
constexpr int firstLane = 170;
constexpr int lastLane = 900;
constexpr int headHeight = 34;
constexpr int rowHeight = 36;
constexpr int lineHeight = 15;
constexpr size_t mostLines = 3;
constexpr size_t partLength = 100;

struct Line {
    std::string text;
    const char* style;
};

// Addresses in the order of their lanes.
class Lanes {
public:
    size_t of(uint32_t address) {
        const auto [found, isNew] = lanes_.try_emplace(address, addresses.size());
        if (isNew) {
            addresses.push_back(address);
        }
        return found->second;
    }

    std::vector<uint32_t> addresses;

private:
    std::unordered_map<uint32_t, size_t> lanes_;
};

std::string number(int value) {
    return std::to_string(value);
}

// One line for each address, however many places tell it.
std::vector<Line> linesOf(const LadderMessage& message) {
    std::vector<Line> lines;
    std::unordered_set<std::string> known;
    const auto add = [&](const std::string& text, const char* style) {
        if (known.insert(text).second) {
            lines.push_back({text, style});
        }
    };
    for (const gateway::ReportedAddress& address : message.remaining) {
        add(toText(address.from) + " stays: " + gateway::leftCauseText(address.cause), "kept");
    }
    for (const gateway::ReportedAddress& address : message.content.rewritten) {
        add(toText(address.from) + " → " + toText(address.to), "changed");
    }
    if (lines.size() > mostLines) {
        const size_t more = lines.size() - (mostLines - 1);
        lines.resize(mostLines - 1);
        lines.push_back({"and " + std::to_string(more) + " more", lines.back().style});
    }
    return lines;
}

class Ladder {
public:
    Ladder(std::ostream& out, const CallRecord& record, int64_t zero, MessageData& data)
        : out_(out), record_(record), zero_(zero), data_(data) {}

    void draw() {
        const size_t count = record_.messages.size();
        for (size_t from = 0; from < count; from += partLength) {
            const size_t to = std::min(from + partLength, count);
            if (count > partLength) {
                out_ << "<details" << (from == 0 ? " open" : "") << "><summary>Messages "
                     << from + 1 << " to " << to << ", from "
                     << gateway::secondsText(record_.messages[from].time - zero_)
                     << " s</summary>\n";
            }
            drawPart(from, to);
            if (count > partLength) {
                out_ << "</details>\n";
            }
        }
    }

private:
    [[nodiscard]] int xOf(size_t lane) const {
        const auto last = static_cast<int>(hosts_.addresses.size() + parties_.addresses.size());
        return firstLane + (lastLane - firstLane) * static_cast<int>(lane) / last;
    }

    [[nodiscard]] size_t routerLane() const { return hosts_.addresses.size(); }

    void drawLane(size_t lane, const std::string& label, int height) {
        const std::string x = number(xOf(lane));
        out_ << "<text class=\"lane\" x=\"" << x << "\" y=\"16\">" << escaped(label)
             << "</text><path class=\"life\" d=\"M" << x << " 24V" << height << "\"/>\n";
    }

    // Has lanes for those who speak in it: in a record of thousands a few of many.
    void drawPart(size_t from, size_t to) {
        hosts_ = {};
        parties_ = {};
        std::vector<std::vector<Line>> lines;
        int height = headHeight;
        for (size_t i = from; i < to; ++i) {
            const LadderMessage& message = record_.messages[i];
            hosts_.of(message.content.host.address);
            parties_.of(message.content.outside.address);
            lines.push_back(linesOf(message));
            height += heightOf(lines.back());
        }
        height += 8;
        out_ << "<svg class=\"ladder\" viewBox=\"0 0 " << width << ' ' << height
             << "\" role=\"group\" aria-label=\"Messages\">\n";
        for (size_t lane = 0; lane < hosts_.addresses.size(); ++lane) {
            drawLane(lane, toText(hosts_.addresses[lane]), height);
        }
        drawLane(routerLane(), "router", height);
        for (size_t party = 0; party < parties_.addresses.size(); ++party) {
            drawLane(routerLane() + 1 + party, toText(parties_.addresses[party]), height);
        }
        int y = headHeight;
        for (size_t i = from; i < to; ++i) {
            drawMessage(record_.messages[i], lines[i - from], y);
            y += heightOf(lines[i - from]);
        }
        out_ << "</svg>\n";
    }

    static int heightOf(const std::vector<Line>& lines) {
        return rowHeight + lineHeight * static_cast<int>(lines.size());
    }

    void drawArrow(int from, int to, int y) {
        const int head = to > from ? -8 : 8;
        out_ << "<path class=\"arrow\" d=\"M" << from << ' ' << y << 'H' << to << "m" << head
             << " -4l" << -head << " 4l" << head << " 4\"/>";
    }

    void drawMessage(const LadderMessage& message, const std::vector<Line>& lines, int y) {
        const gateway::ReportedMessage& content = message.content;
        const bool sent = content.direction == H323NAT_SENT;
        const int host = xOf(hosts_.of(content.host.address));
        const int party = xOf(routerLane() + 1 + parties_.of(content.outside.address));
        const int router = xOf(routerLane());
        const std::string name = content.name.empty() ? "unknown" : content.name;
        const std::string time = gateway::secondsText(message.time - zero_);
        const std::string ends = (sent ? toText(content.host) : toText(content.outside)) + " → " +
                                 (sent ? toText(content.outside) : toText(content.host));
        const std::string frame =
            message.frame == 0 ? "" : "frame " + std::to_string(message.frame) + ", ";
        const size_t shown = data_.add(message, name + " — " + frame + time + " s, " + ends);

        out_ << "<g class=\"message" << (content.rewritten.empty() ? "" : " rewritten")
             << (message.remaining.empty() ? "" : " leaks") << "\" tabindex=\"0\" role=\"button\""
             << " data-message=\"" << shown << "\" data-frame=\"" << message.frame
             << "\" aria-label=\"" << escaped(name + ", " + frame + ends) << "\"><rect x=\"0\" y=\""
             << y << "\" width=\"" << width << "\" height=\"" << heightOf(lines)
             << "\"/><text class=\"time\" x=\"4\" y=\"" << y + 16 << "\">" << time << "</text>";
        if (message.frame != 0) {
            out_ << "<text class=\"frame\" x=\"4\" y=\"" << y + 30 << "\">frame " << message.frame
                 << "</text>";
        }
        out_ << "<text class=\"name\" x=\"" << (host + party) / 2 << "\" y=\"" << y + 14 << "\">"
             << escaped(name) << "</text>";
        drawArrow(sent ? host : party, sent ? party : host, y + 24);
        out_ << "<circle cx=\"" << router << "\" cy=\"" << y + 24 << "\" r=\"4\"/>";
        int line = y + rowHeight + 4;
        for (const Line& text : lines) {
            out_ << "<text class=\"" << text.style << "\" x=\"" << router << "\" y=\"" << line
                 << "\">" << escaped(text.text) << "</text>";
            line += lineHeight;
        }
        out_ << "</g>\n";
    }

    std::ostream& out_;
    const CallRecord& record_;
    int64_t zero_;
    MessageData& data_;
    Lanes hosts_; // of the part that is drawn
    Lanes parties_;
};

} // namespace

void drawLadder(std::ostream& out, const CallRecord& record, int64_t zero, MessageData& data) {
    Ladder(out, record, zero, data).draw();
}

} // namespace report
