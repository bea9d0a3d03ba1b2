#include "gateway/live/daemon.h"

#include "gateway/live/interfaces.h"
#include "gateway/live/kernel_events.h"
#include "gateway/live/live_gateway.h"
#include "gateway/live/mapping_feed.h"
#include "gateway/live/saved_state.h"
#include "gateway/live/service_manager.h"
#include "gateway/live/status.h"
#include "gateway/live/status_socket.h"
#include "gateway/live/survey_thread.h"
#include "gateway/live/table_lock.h"
#include "gateway/live/whole_file.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <random>
#include <utility>

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto soon = std::chrono::milliseconds(200);
constexpr auto betweenSweeps = std::chrono::seconds(1); // however many calls begin,
constexpr int leastRest = 20;                           // and so often the time that a survey takes
constexpr auto betweenTableEvents = std::chrono::milliseconds(50); // most are our own
constexpr auto betweenCopies = std::chrono::milliseconds(20);      // what they tell has time
constexpr auto longestSleep = std::chrono::seconds(5);
constexpr int readsPerTurn = 32; // then signals, status and time get their turn

LiveSeconds secondsOf(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

RouterSides sidesOf(const LiveConfig& config) {
    RouterSides sides;
    sides.inside = indicesOfInside(config);
    sides.outside = indexOfInterface(config.outside);
    sides.publicAddress =
        config.publicAddress != 0 ? config.publicAddress : addressOfInterface(config.outside);
    return sides;
}

std::string whatIsMissing(const LiveConfig& config, const RouterSides& sides) {
    if (sides.outside == 0) {
        return "there is no outside interface '" + config.outside + "'";
    }
    if (sides.publicAddress == 0) {
        return "the outside interface '" + config.outside + "' has no IPv4 address";
    }
    if (sides.inside.empty()) {
        return "there is no inside interface '" + insideText(config) + "'";
    }
    return {};
}

std::string whatCannotChange(const LiveConfig& running, const LiveConfig& wanted) {
    const bool same =
        wanted.queueNumber == running.queueNumber && wanted.queueLength == running.queueLength &&
        wanted.statusSocket == running.statusSocket && wanted.dryRun == running.dryRun &&
        wanted.scope == running.scope && wanted.calls == running.calls &&
        wanted.strict == running.strict && wanted.table == running.table &&
        wanted.feedFrom == running.feedFrom && wanted.feedTo == running.feedTo;
    return same ? ""
                : "queue-number, queue-length, status-socket, scope, calls, strict, table and feed "
                  "cannot change in a running gateway; restart it";
}

uint64_t newSeed() {
    std::random_device device;
    return static_cast<uint64_t>(device()) << 32 | (device() | 1U);
}

class Signals {
public:
    Signals() {
        sigset_t wanted;
        sigemptyset(&wanted);
        for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
            sigaddset(&wanted, number);
        }
        sigprocmask(SIG_BLOCK, &wanted, &before_);
        descriptor_ = signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~Signals() {
        close(descriptor_);
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }

    // The next signal's number; 0 when there is none.
    [[nodiscard]] int next() const {
        signalfd_siginfo info{};
        return read(descriptor_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)
                   ? static_cast<int>(info.ssi_signo)
                   : 0;
    }

private:
    int descriptor_ = -1;
    sigset_t before_{};
};

class Daemon {
public:
    Daemon(const ConfigSource& source, const LiveConfig& config, const SavedState& before)
        : source_(source), log_(counters_), sides_(sidesOf(config)),
          gateway_(config, sides_.publicAddress, before.seed != 0 ? before.seed : newSeed(), table_,
                   conntrack_, log_, counters_),
          surveys_(config.table), started_(secondsOf(Clock::now())) {}

    std::string start(const SavedState& before);
    std::string run();

private:
    enum Waiting : uint8_t { Queue, Copies, Stop, Status, Survey, Links, Table, Feed, count };

    std::string drainQueue();
    bool handleSignals();
    void reload();
    void followInterfaces();
    void beginSweep(Clock::time_point now);
    void endSweep();
    void restoreTable();
    void note(const SurveyThread::NotSaved& notSaved);
    [[nodiscard]] SurveyThread::Save saving() const;
    void tellWatchdog(Clock::time_point now);
    [[nodiscard]] std::chrono::milliseconds mayWait() const;
    // Each change of a set is told back to us: they are read some at a time.
    [[nodiscard]] int tableWatched(Clock::time_point now) const {
        return now < nextTableEvents_ ? -1 : tableEvents_.descriptor();
    }
    // Copies are read with the queue, and now and then where no packet waits.
    [[nodiscard]] int copiesWatched(Clock::time_point now) const {
        return now < nextCopies_ ? -1 : queue_.copiesDescriptor();
    }
    [[nodiscard]] StatusSource status() const {
        return {gateway_, counters_, started_, secondsOf(Clock::now())};
    }

    const ConfigSource& source_;
    Signals signals_;
    Counters counters_;
    EventLog log_;
    Conntrack conntrack_;
    NetfilterTable table_;
    PacketQueue queue_;
    RouterSides sides_;
    LiveGateway gateway_;
    StatusSocket statusSocket_;
    SurveyThread surveys_;
    LinkEvents links_;
    TableEvents tableEvents_;
    MappingFeed feed_;
    uint64_t lastFed_ = 0; // number of the newest mapping that was told
    LiveSeconds started_;
    std::string missing_; // what the gateway waits for
    Clock::time_point nextSweep_;
    Clock::time_point surveyBegan_;
    Clock::time_point restUntil_;
    Clock::time_point nextTableEvents_;
    Clock::time_point nextCopies_;
    Clock::time_point nextWatchdog_;
};

// The queue comes first: a queue belongs to one program at a time, so a second gateway stops here
// and leaves the table of the first alone.
std::string Daemon::start(const SavedState& before) {
    const LiveConfig& config = gateway_.config();
    log_.configure(config.logFormat, config.logDebug);
    std::string failure = conntrack_.failure();
    const auto step = [&](auto&& next) {
        if (failure.empty()) {
            failure = next();
        }
    };
    step([&] { return queue_.open(config.queueNumber, config.queueLength); });
    table_.copyBeginnings(queue_.copiesDescriptor() >= 0);
    step([&] { return statusSocket_.open(config.statusSocket); });
    step([&] { return links_.open(); });
    step([&] { return tableEvents_.open(config.table); });
    step([&] { return gateway_.start(before, started_); });
    if (config.feedFrom.port != 0 && !config.dryRun) {
        step([&] { return feed_.open(config.feedFrom, config.feedTo); });
    }
    if (failure.empty()) {
        followInterfaces();
        nextSweep_ = Clock::now();
        notifyServiceManager("READY=1\nSTATUS=Translating");
    }
    return failure;
}

std::chrono::milliseconds Daemon::mayWait() const {
    const auto now = Clock::now();
    auto next = std::min({nextSweep_, gateway_.nextRelease(), nextWatchdog_, now + longestSleep});
    for (const auto unwatched : {nextTableEvents_, nextCopies_}) {
        next = now < unwatched ? std::min(next, unwatched) : next;
    }
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(next - now) +
                        std::chrono::milliseconds(1),
                    std::chrono::milliseconds(0));
}

std::string Daemon::run() {
    for (;;) {
        const auto now = Clock::now();
        tellWatchdog(now);
        if (gateway_.wantsSweep()) {
            nextSweep_ = std::min(nextSweep_, std::max(now + soon, restUntil_));
        }
        if (now >= nextSweep_) {
            beginSweep(now);
        }
        std::array<pollfd, Waiting::count> waiting{{{queue_.descriptor(), POLLIN, 0},
                                                    {copiesWatched(now), POLLIN, 0},
                                                    {signals_.descriptor(), POLLIN, 0},
                                                    {statusSocket_.descriptor(), POLLIN, 0},
                                                    {surveys_.descriptor(), POLLIN, 0},
                                                    {links_.descriptor(), POLLIN, 0},
                                                    {tableWatched(now), POLLIN, 0},
                                                    {feed_.descriptor(), POLLIN, 0}}};
        const int ready = poll(waiting.data(), waiting.size(), static_cast<int>(mayWait().count()));
        if (ready < 0 && errno != EINTR) {
            return std::string("poll: ") + std::strerror(errno);
        }
        if (waiting[Queue].revents != 0 || waiting[Copies].revents != 0) {
            nextCopies_ = now + betweenCopies;
            std::string failure = drainQueue();
            if (!failure.empty()) {
                return failure;
            }
        }
        if (gateway_.nextRelease() <= Clock::now()) {
            gateway_.releaseHeld(queue_, Clock::now());
        }
        if (feed_.descriptor() >= 0) {
            feed_.send(gateway_.mappings().ownForwards(lastFed_));
        }
        if (waiting[Feed].revents != 0) {
            gateway_.hear(feed_.receive(), secondsOf(Clock::now()));
        }
        if (waiting[Survey].revents != 0) {
            endSweep();
        }
        if (waiting[Links].revents != 0 && links_.changed()) {
            followInterfaces();
        }
        const bool news = waiting[Table].revents != 0;
        nextTableEvents_ = news ? now + betweenTableEvents : nextTableEvents_;
        if (tableEvents_.damaged(news)) {
            restoreTable();
        }
        if (waiting[Status].revents != 0) {
            statusSocket_.answer([this] { return statusJson(status()); });
        }
        if (waiting[Stop].revents != 0 && !handleSignals()) {
            notifyServiceManager("STOPPING=1");
            surveys_.finish();
            note(saving()());
            log_.info("stop", {});
            return {};
        }
    }
}

std::string Daemon::drainQueue() {
    for (int reads = 0; reads < readsPerTurn; ++reads) {
        const auto now = Clock::now();
        const auto received = queue_.receive(
            [&](const QueuedPacket& packet) { gateway_.handle(packet, queue_, now); });
        gateway_.settle(queue_);
        switch (received) {
        case PacketQueue::Received::Packets:
            break;
        case PacketQueue::Received::Nothing:
            return {};
        case PacketQueue::Received::Overrun:
            counters_.add(Cause::queueOverruns);
            break;
        case PacketQueue::Received::Failed:
            return std::string("netfilter queue: ") + std::strerror(errno);
        }
    }
    return {};
}

bool Daemon::handleSignals() {
    while (const int number = signals_.next()) {
        if (number != SIGHUP) {
            return false;
        }
        reload();
    }
    return true;
}

void Daemon::reload() {
    const auto monotonic =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch())
            .count();
    notifyServiceManager("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(monotonic));
    LiveConfig config;
    std::string failure = source_(config);
    const LiveConfig& running = gateway_.config();
    if (failure.empty()) {
        failure = whatCannotChange(running, config);
    }
    if (failure.empty()) {
        failure = gateway_.reconfigure(config);
    }
    if (failure.empty()) {
        log_.configure(config.logFormat, config.logDebug);
        followInterfaces();
        log_.info("reload", {{"public", toText(gateway_.publicAddress())}});
    } else {
        log_.warning("reload-refused", {{"failure", failure}});
    }
    notifyServiceManager(failure.empty() ? "READY=1\nSTATUS=Translating"
                                         : "READY=1\nSTATUS=Reload refused: " + failure);
}

// Interfaces come and go (a dial-up line has a new index and address each time).
void Daemon::followInterfaces() {
    const RouterSides sides = sidesOf(gateway_.config());
    const std::string missing = whatIsMissing(gateway_.config(), sides);
    if (missing != missing_) {
        missing_ = missing;
        if (missing.empty()) {
            log_.info("interfaces", {{"outside", gateway_.config().outside},
                                     {"public", toText(sides.publicAddress)}});
        } else {
            log_.warning("waiting", {{"for", missing}});
        }
    }
    const uint32_t before = gateway_.publicAddress();
    const std::string failure = gateway_.setSides(sides);
    if (gateway_.publicAddress() != before) {
        log_.warning("public-address", {{"now", toText(gateway_.publicAddress())},
                                        {"failure", failure.empty() ? "none" : failure}});
    }
}

void Daemon::restoreTable() {
    counters_.add(Cause::tableRemade);
    const std::string failure = gateway_.restoreTable();
    tableEvents_.settle();
    log_.warning("table-remade", {{"cause", "another program removed the table or parts of it"},
                                  {"failure", failure.empty() ? "none" : failure}});
}

// Of the state and the counters as they are now.
SurveyThread::Save Daemon::saving() const {
    const LiveConfig& config = gateway_.config();
    const bool keeps = !config.stateFile.empty() && !config.dryRun;
    return [stateFile = keeps ? config.stateFile : "", metricsFile = config.metricsFile,
            state = keeps ? gateway_.state() : SavedState(),
            metrics = config.metricsFile.empty() ? "" : metricsText(status())] {
        SurveyThread::NotSaved notSaved;
        if (!stateFile.empty()) {
            notSaved.state = writeState(stateFile, state);
        }
        if (!metricsFile.empty()) {
            notSaved.metrics = replaceFile(metricsFile, metrics, FileUse::Metrics);
        }
        return notSaved;
    };
}

void Daemon::note(const SurveyThread::NotSaved& notSaved) {
    if (!notSaved.state.empty()) {
        log_.warning("state-not-saved", {{"failure", notSaved.state}});
    }
    if (!notSaved.metrics.empty()) {
        log_.info("metrics", {{"failure", notSaved.metrics}});
    }
}

void Daemon::tellWatchdog(Clock::time_point now) {
    if (now < nextWatchdog_) {
        return;
    }
    const auto interval = watchdogInterval();
    nextWatchdog_ = interval.count() == 0 ? Clock::time_point::max() : now + interval / 2;
    if (interval.count() != 0) {
        notifyServiceManager("WATCHDOG=1");
    }
}

void Daemon::beginSweep(Clock::time_point now) {
    if (!surveys_.isBusy()) {
        FlowSurvey survey = gateway_.survey();
        drainQueue();
        surveys_.start(std::move(survey), saving());
        surveyBegan_ = now;
    }
    restUntil_ = now + betweenSweeps;
    nextSweep_ = now + std::chrono::seconds(gateway_.config().sweepInterval);
}

void Daemon::endSweep() {
    const FlowSurvey* const survey = surveys_.take();
    if (survey == nullptr) {
        return;
    }
    const auto now = Clock::now();
    restUntil_ = std::max(restUntil_, now + leastRest * (now - surveyBegan_));
    // Packets do not wait for all of it at once.
    gateway_.count(*survey, secondsOf(now));
    drainQueue();
    gateway_.sweep(*survey, secondsOf(now));
    // What was wanted until now has come by the time the queue is empty.
    const uint64_t wanted = table_.wantedPackets();
    drainQueue();
    const uint64_t passedBy = queue_.notDelivered(wanted, gateway_.heldPackets());
    counters_.set(Cause::queuePassedBy, std::max(passedBy, counters_.of(Cause::queuePassedBy)));
    note(surveys_.notSaved());
    lastFed_ = 0; // all are told again
}

} // namespace

std::string runGateway(const ConfigSource& source) {
    LiveConfig config;
    std::string failure = source(config);
    SavedState before;
    if (failure.empty() && !config.stateFile.empty() && !config.dryRun) {
        failure = readState(config.stateFile, before);
    }
    TableLock lock;
    if (failure.empty() && !config.dryRun) {
        failure = lock.take(config.table);
    }
    if (!failure.empty()) {
        return failure;
    }
    try {
        Daemon daemon(source, config, before);
        failure = daemon.start(before);
        return failure.empty() ? daemon.run() : failure;
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string describeRules(const LiveConfig& config) {
    return renderRuleset(config, sidesOf(config).publicAddress, Transition::Replace) +
           renderCopyRule(config) + renderQueueStatement(config);
}

} // namespace gateway
