#include "cli/replay_page.h"

#include "gateway/capture_time.h"
#include "report/call_recorder.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace cli {
namespace {

using gateway::nanosecondsOf;

class PageReport final : public ReplayReport {
public:
    PageReport(std::unique_ptr<ReplayReport> next, std::string path, report::PageTitle title,
               const gateway::Network& inside)
        : next_(std::move(next)), path_(std::move(path)), title_(std::move(title)),
          recorder_(report::RecorderSettings{.inside = inside}), file_(path_, std::ios::binary) {
        check();
    }

    void onPacket(const gateway::CapturedFrame& frame,
                  const gateway::PacketOutcome& outcome) override {
        recorder_.addPacket(nanosecondsOf(frame.time), outcome);
    }

    void onCall(const gateway::CapturedFrame& frame, const gateway::ReportedCall& call) override {
        recorder_.addCall(nanosecondsOf(frame.time), call);
    }

    void onMapping(const gateway::CapturedFrame& frame,
                   const gateway::MappingRequest& request) override {
        recorder_.addMapping(nanosecondsOf(frame.time), request);
        next_->onMapping(frame, request);
    }

    void onMessage(const gateway::CapturedFrame& frame, const gateway::ReportedMessage& message,
                   const std::vector<gateway::ReportedAddress>& remaining) override {
        title_.zero = nanosecondsOf(frame.captureStart);
        recorder_.addMessage(nanosecondsOf(frame.time), frame.number, message, remaining);
        next_->onMessage(frame, message, remaining);
    }

    void onEnd(const gateway::ReplayTotals& totals) override {
        next_->onEnd(totals);
        title_.notShown = recorder_.messagesNotKept();
        writeCallPage(file_, title_, recorder_.finish());
        file_.close();
        check();
    }

private:
    void check() const {
        if (!file_) {
            throw std::runtime_error(path_ + ": cannot be written: " + std::strerror(errno));
        }
    }

    std::unique_ptr<ReplayReport> next_;
    std::string path_;
    report::PageTitle title_;
    report::CallRecorder recorder_;
    std::ofstream file_;
};

} // namespace

std::unique_ptr<ReplayReport> makePageReport(std::unique_ptr<ReplayReport> next,
                                             const std::string& path,
                                             const report::PageTitle& title,
                                             const gateway::Network& inside) {
    return std::make_unique<PageReport>(std::move(next), path, title, inside);
}

} // namespace cli
