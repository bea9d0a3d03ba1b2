#pragma once

#include "gateway/live/conntrack.h"
#include "gateway/live/flow_survey.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace gateway {

// Reads the kernel's connection table beside the packets: a large one takes tenths of a second.
class SurveyThread {
public:
    SurveyThread();
    ~SurveyThread();
    SurveyThread(const SurveyThread&) = delete;
    SurveyThread& operator=(const SurveyThread&) = delete;

    // Fills `survey`, one at a time: not while `isBusy`.
    void start(FlowSurvey survey);
    [[nodiscard]] bool isBusy() const { return busy_; }

    // To wait for with poll: readable when a survey is done.
    [[nodiscard]] int descriptor() const { return done_; }

    // The survey that is done; nullopt when there is none, or the kernel did not answer.
    std::optional<FlowSurvey> take();

private:
    void run();

    int done_ = -1;
    bool busy_ = false; // of the caller's thread
    std::mutex mutex_;
    std::condition_variable wanted_;
    std::optional<FlowSurvey> survey_;
    bool working_ = false;
    bool answered_ = false;
    bool ends_ = false;
    std::thread thread_;
};

} // namespace gateway
