#include "gateway/live/daemon.h"

#include "gateway/live/interfaces.h"
#include "gateway/live/live_gateway.h"
#include "gateway/live/status.h"
#include "gateway/live/status_socket.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto soon = std::chrono::milliseconds(200);
constexpr int packetsPerTurn = 256; // then signals, status and time get their turn

LiveSeconds secondsOf(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

std::string publicAddressOf(const LiveConfig& config, uint32_t& address) {
    address = config.publicAddress != 0 ? config.publicAddress : addressOfInterface(config.outside);
    return address != 0 ? ""
                        : "the outside interface '" + config.outside +
                              "' has no IPv4 address; is it up? (public-address sets one by hand)";
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
    Daemon(const ConfigSource& source, const LiveConfig& config, uint32_t publicAddress)
        : source_(source), log_(counters_),
          gateway_(config, publicAddress, table_, conntrack_, log_, counters_),
          started_(secondsOf(Clock::now())) {}

    std::string start();
    std::string run();

private:
    std::string drainQueue();
    bool handleSignals();
    void reload();
    void followInterfaces();
    void sweep(Clock::time_point now);
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
    LiveGateway gateway_;
    StatusSocket statusSocket_;
    LiveSeconds started_;
    Clock::time_point nextSweep_;
};

// The queue comes first: a queue belongs to one program at a time, so a second gateway stops here
// and leaves the table of the first alone.
std::string Daemon::start() {
    const LiveConfig& config = gateway_.config();
    log_.configure(config.logFormat, config.logDebug);
    std::string failure = conntrack_.failure();
    if (failure.empty()) {
        failure = queue_.open(config.queueNumber, config.queueLength);
    }
    if (failure.empty()) {
        failure = statusSocket_.open(config.statusSocket);
    }
    if (failure.empty()) {
        failure = gateway_.start(started_);
    }
    if (failure.empty()) {
        followInterfaces();
        nextSweep_ = Clock::now();
        sd_notify(0, "READY=1\nSTATUS=Translating");
    }
    return failure;
}

std::string Daemon::run() {
    for (;;) {
        const auto now = Clock::now();
        if (gateway_.wantsSweep()) {
            nextSweep_ = std::min(nextSweep_, now + soon);
        }
        if (now >= nextSweep_) {
            sweep(now);
        }
        const auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(nextSweep_ - Clock::now());
        std::array<pollfd, 3> waiting{{{queue_.descriptor(), POLLIN, 0},
                                       {signals_.descriptor(), POLLIN, 0},
                                       {statusSocket_.descriptor(), POLLIN, 0}}};
        const int ready = poll(waiting.data(), waiting.size(),
                               static_cast<int>(std::max<int64_t>(wait.count() + 1, 0)));
        if (ready < 0 && errno != EINTR) {
            return std::string("poll: ") + std::strerror(errno);
        }
        if (waiting[0].revents != 0) {
            std::string failure = drainQueue();
            if (!failure.empty()) {
                return failure;
            }
        }
        if (waiting[2].revents != 0) {
            statusSocket_.answer([this] { return statusJson(status()); });
        }
        if (waiting[1].revents != 0 && !handleSignals()) {
            sd_notify(0, "STOPPING=1");
            log_.info("stop", {});
            return {};
        }
    }
}

std::string Daemon::drainQueue() {
    const LiveSeconds now = secondsOf(Clock::now());
    for (int packets = 0; packets < packetsPerTurn; ++packets) {
        switch (queue_.receive(
            [&](const QueuedPacket& packet) { gateway_.handle(packet, queue_, now); })) {
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
    sd_notify(0, "RELOADING=1");
    LiveConfig config;
    uint32_t publicAddress = 0;
    std::string failure = source_(config);
    if (failure.empty()) {
        failure = publicAddressOf(config, publicAddress);
    }
    const LiveConfig& running = gateway_.config();
    if (failure.empty() &&
        (config.queueNumber != running.queueNumber || config.queueLength != running.queueLength ||
         config.statusSocket != running.statusSocket || config.dryRun != running.dryRun)) {
        failure =
            "queue-number, queue-length and status-socket cannot change in a running gateway; "
            "restart it";
    }
    if (failure.empty()) {
        failure = gateway_.reconfigure(config, publicAddress);
    }
    if (failure.empty()) {
        log_.configure(config.logFormat, config.logDebug);
        followInterfaces();
        log_.info("reload", {{"public", toText(publicAddress)}});
    } else {
        log_.warning("reload-refused", {{"failure", failure}});
    }
    sd_notify(0, "READY=1");
}

// Interfaces come and go (a dial-up line has a new index and address each time).
void Daemon::followInterfaces() {
    const LiveConfig config = gateway_.config();
    gateway_.setInterfaces(indexOfInterface(config.inside), indexOfInterface(config.outside));
    uint32_t publicAddress = 0;
    if (!publicAddressOf(config, publicAddress).empty() ||
        publicAddress == gateway_.publicAddress()) {
        return;
    }
    const std::string failure = gateway_.reconfigure(config, publicAddress);
    log_.warning("public-address",
                 {{"now", toText(publicAddress)}, {"failure", failure.empty() ? "none" : failure}});
}

void Daemon::sweep(Clock::time_point now) {
    followInterfaces();
    gateway_.sweep(secondsOf(now));
    const uint64_t passedBy = queue_.notDelivered(table_.wantedPackets());
    counters_.set(Cause::queuePassedBy, std::max(passedBy, counters_.of(Cause::queuePassedBy)));
    const std::string& path = gateway_.config().metricsFile;
    if (!path.empty()) {
        const std::string failure = writeMetricsFile(path, metricsText(status()));
        if (!failure.empty()) {
            log_.info("metrics", {{"failure", failure}});
        }
    }
    nextSweep_ = now + std::chrono::seconds(gateway_.config().sweepInterval);
}

} // namespace

std::string runGateway(const ConfigSource& source) {
    LiveConfig config;
    uint32_t publicAddress = 0;
    std::string failure = source(config);
    if (failure.empty()) {
        failure = publicAddressOf(config, publicAddress);
    }
    if (!failure.empty()) {
        return failure;
    }
    try {
        Daemon daemon(source, config, publicAddress);
        failure = daemon.start();
        return failure.empty() ? daemon.run() : failure;
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string describeRules(const LiveConfig& config, std::string& rules) {
    uint32_t publicAddress = 0;
    std::string failure = publicAddressOf(config, publicAddress);
    if (failure.empty()) {
        rules = renderRuleset(config, publicAddress, {}, Transition::Replace) +
                renderQueueStatement(config.queueNumber);
    }
    return failure;
}

} // namespace gateway
