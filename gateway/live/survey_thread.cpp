#include "gateway/live/survey_thread.h"

#include "gateway/live/nft_reader.h"
#include "gateway/live/ruleset.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>
#include <vector>

namespace gateway {

SurveyThread::SurveyThread(std::string table)
    : table_(std::move(table)), done_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    // Signals are for the thread that waits for them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SurveyThread::~SurveyThread() {
    finish();
    close(done_);
}

void SurveyThread::finish() {
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    wanted_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void SurveyThread::start(FlowSurvey survey, Save save) {
    {
        const std::lock_guard lock(mutex_);
        asked_ = std::move(survey);
        save_ = std::move(save);
        working_ = true;
    }
    busy_ = true;
    wanted_.notify_one();
}

SurveyThread::NotSaved SurveyThread::notSaved() {
    const std::lock_guard lock(mutex_);
    return notSaved_;
}

const FlowSurvey* SurveyThread::take() {
    eventfd_t number = 0;
    if (eventfd_read(done_, &number) != 0) {
        return nullptr;
    }
    busy_ = false;
    const std::lock_guard lock(mutex_);
    return answered_ ? &survey_ : nullptr;
}

void SurveyThread::run() {
    Conntrack conntrack;
    PacketGrowth growth;
    std::unique_lock lock(mutex_);
    for (;;) {
        wanted_.wait(lock, [this] { return working_ || ends_; });
        if (ends_) {
            return;
        }
        survey_ = std::move(asked_); // frees the one before, which has its time as well
        const Save save = std::move(save_);
        lock.unlock();
        std::vector<TrackedFlow> flows;
        const bool answered = conntrack.list(flows);
        if (answered) {
            survey_.fill(flows, readUses(table_, activeSet, activeTimeout), growth);
        }
        lock.lock();
        answered_ = answered;
        working_ = false;
        (void)eventfd_write(done_, 1);
        lock.unlock();
        NotSaved notSaved = save();
        lock.lock();
        notSaved_ = std::move(notSaved);
    }
}

} // namespace gateway
