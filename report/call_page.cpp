#include "report/call_page.h"

#include "gateway/capture_time.h"
#include "report/drawing.h"
#include "report/findings.h"
#include "report/markup.h"
#include "report/message_data.h"
#include "report/page_files.h"

#include <algorithm>

namespace report {
namespace {

using gateway::toText;

// More of them start folded.
constexpr size_t mostOpenCalls = 5;

// An alias that is written from right to left turns nothing around but itself.
std::string named(const std::string& alias, const gateway::Endpoint& endpoint) {
    const std::string address = toText(endpoint.address);
    return alias.empty() ? address : "\u2068" + validText(alias) + "\u2069 (" + address + ")";
}

std::string caller(const CallRecord& record) {
    return named(record.callingAlias, record.outbound ? record.host : record.outside);
}

std::string called(const CallRecord& record) {
    return named(record.calledAlias, record.outbound ? record.outside : record.host);
}

std::string partiesOf(const CallRecord& record) {
    return record.isCall ? caller(record) + " → " + called(record)
                         : toText(record.host.address) + " and " + toText(record.outside.address);
}

std::string clock(int64_t time) {
    return gateway::timestampText({time / gateway::nanosecondsPerSecond,
                                   static_cast<int32_t>(time % gateway::nanosecondsPerSecond)});
}

class Page {
public:
    Page(std::ostream& out, const PageTitle& title, const std::vector<CallRecord>& records)
        : out_(out), title_(title), records_(records) {}

    void write() {
        const std::string title = escaped(validText(title_.title));
        out_ << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                "<meta name=\"viewport\" content=\"width=device-width\">\n"
                "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
                "style-src 'unsafe-inline'; script-src 'unsafe-inline'; img-src data:\">\n"
                "<link rel=\"icon\" href=\"data:,\">\n<title>"
             << title << "</title>\n<style>\n"
             << pageStyle << "</style>\n</head>\n<body>\n<main>\n<h1>" << title << "</h1>\n<p>"
             << escaped(validText(title_.settings)) << "</p>\n";
        writeOverview();
        for (size_t i = 0; i < records_.size(); ++i) {
            writeRecord(records_[i], i);
        }
        if (title_.notShown > 0) {
            out_ << "<p class=\"trouble\">" << title_.notShown
                 << " later messages are not shown: the page holds no more.</p>\n";
        }
        out_ << "</main>\n<aside id=\"detail\" hidden aria-live=\"polite\"></aside>\n"
                "<script type=\"application/json\" id=\"data\">";
        data_.write(out_);
        out_ << "</script>\n<script>\n" << pageScript << "</script>\n</body>\n</html>\n";
    }

private:
    void writeOverview() {
        if (records_.empty()) {
            out_ << "<p>No H.323 message was seen.</p>\n";
            return;
        }
        out_ << "<table>\n<tr><th>Call</th><th>Start</th><th>Length</th><th>Messages</th>"
                "<th>Verdict</th></tr>\n";
        for (size_t i = 0; i < records_.size(); ++i) {
            const CallRecord& record = records_[i];
            out_ << "<tr><td><a href=\"#call-" << i + 1 << "\">" << escaped(partiesOf(record))
                 << "</a>" << (record.isCall ? "" : ", no call") << "</td><td>"
                 << clock(record.start) << "</td><td>"
                 << (record.isCall ? lengthOf(record) : std::string()) << "</td><td>"
                 << record.messages.size() << "</td><td>" << verdictOf(record) << "</td></tr>\n";
        }
        out_ << "</table>\n";
    }

    static std::string lengthOf(const CallRecord& record) {
        return record.ended == never ? "no end seen"
                                     : gateway::secondsText(record.ended - record.start) + " s";
    }

    static std::string verdictOf(const CallRecord& record) {
        return std::string("<span class=\"verdict ") + (isGood(record) ? "good" : "trouble") +
               "\">" + (isGood(record) ? "✓ " : "✗ ") + escaped(record.verdict) + "</span>";
    }

    void writeFact(const char* name, const std::string& value) {
        if (!value.empty()) {
            out_ << "<div><dt>" << name << "</dt><dd>" << escaped(value) << "</dd></div>\n";
        }
    }

    void writeFacts(const CallRecord& record) {
        out_ << "<dl>\n";
        writeFact("Start", clock(record.start));
        if (record.connected != never) {
            writeFact("Connected after",
                      gateway::secondsText(record.connected - record.start) + " s");
        }
        if (record.isCall) {
            writeFact("Length", lengthOf(record));
        }
        if (record.cause != 0) {
            writeFact("Release cause", std::to_string(record.cause) + " (Q.850)");
        }
        writeFact("Call identifier", record.callIdentifier);
        out_ << "</dl>\n";
    }

    void writeRecord(const CallRecord& record, size_t index) {
        out_ << "<details class=\"call\" id=\"call-" << index + 1 << '"'
             << (index < mostOpenCalls ? " open" : "") << ">\n<summary><h2>"
             << escaped((record.isCall ? "Call " : "No call: ") + partiesOf(record)) << "</h2> "
             << verdictOf(record) << "</summary>\n";
        writeFacts(record);
        if (!record.findings.empty()) {
            out_ << "<ul class=\"findings\">\n";
            writeFindings(record);
            out_ << "</ul>\n";
        }
        drawStreams(out_, record);
        drawLadder(out_, record, title_.zero, data_);
        out_ << "</details>\n";
    }

    void writeFindings(const CallRecord& record) {
        constexpr size_t most = 50;
        const size_t shown = std::min(record.findings.size(), most);
        for (size_t i = 0; i < shown; ++i) {
            const Finding& finding = record.findings[i];
            out_ << "<li class=\"" << (finding.severity == Severity::Trouble ? "trouble" : "note")
                 << "\">" << escaped(validText(finding.text)) << "</li>\n";
        }
        if (shown < record.findings.size()) {
            out_ << "<li>And " << record.findings.size() - shown << " more.</li>\n";
        }
    }

    std::ostream& out_;
    const PageTitle& title_;
    const std::vector<CallRecord>& records_;
    MessageData data_;
};

} // namespace

void writeCallPage(std::ostream& out, const PageTitle& title,
                   const std::vector<CallRecord>& records) {
    Page(out, title, records).write();
}

} // namespace report
