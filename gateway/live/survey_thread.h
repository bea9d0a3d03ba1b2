#pragma once

#include "gateway/live/conntrack.h"
#include "gateway/live/flow_survey.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace gateway {

// Reads the kernel's connection table, and the uses that the gateway's table keeps, and then writes
// what is to be kept, beside the packets: large tables and slow disks take tenths of a second.
class SurveyThread {
public:
    explicit SurveyThread(std::string table);
    ~SurveyThread();
    SurveyThread(const SurveyThread&) = delete;
    SurveyThread& operator=(const SurveyThread&) = delete;

    // Why a file was not written; empty texts: all were.
    struct NotSaved {
        std::string state;
        std::string metrics;
    };
    using Save = std::function<NotSaved()>;

    // Fills `survey`, then calls `save`, which the next survey waits for. Not while `isBusy`.
    void start(FlowSurvey survey, Save save);
    [[nodiscard]] bool isBusy() const { return busy_; }

    // To wait for with poll: readable when a survey is done.
    [[nodiscard]] int descriptor() const { return done_; }

    // The survey that is done, valid until the next `start`; null when there is none, or the kernel
    // did not answer.
    const FlowSurvey* take();

    // What went wrong in the last `save` that has ended.
    [[nodiscard]] NotSaved notSaved();

    // Ends the thread; what it has begun it brings to an end.
    void finish();

private:
    void run();

    std::string table_;
    int done_ = -1;
    bool busy_ = false; // of the caller's thread
    FlowSurvey survey_; // of the thread until it is done, then of the caller until the next start
    std::mutex mutex_;  // of all that follows
    std::condition_variable wanted_;
    FlowSurvey asked_;
    Save save_;
    NotSaved notSaved_;
    bool working_ = false;
    bool answered_ = false;
    bool ends_ = false;
    std::thread thread_;
};

} // namespace gateway
