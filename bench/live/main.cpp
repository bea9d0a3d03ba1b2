// Plays many calls between two network namespaces and tells how it went, as lines of JSON.
// live_load.py makes the namespaces and what stands between them.

#include "bench/live/player.h"

#include <CLI/CLI.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

namespace {

using namespace load;

double share(std::vector<double> values, double part) {
    if (values.empty()) {
        return 0;
    }
    const auto at = static_cast<size_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at),
                     values.end());
    return values[at];
}

double ownProcessorTime() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

void tell(const Player& player, double seconds) {
    const Counts& counts = player.counts();
    const Times& times = player.times();
    (void)std::printf("{\"up\": %llu, \"ended\": %llu, \"failed\": %llu, \"wrong\": %llu, "
                      "\"seconds\": %.3f, \"own_cpu\": %.3f",
                      static_cast<unsigned long long>(counts.up),
                      static_cast<unsigned long long>(counts.ended),
                      static_cast<unsigned long long>(counts.failed),
                      static_cast<unsigned long long>(counts.wrong), seconds, ownProcessorTime());
    const auto both = [](const char* name, const std::vector<double>& values) {
        (void)std::printf(", \"%s\": [%.0f, %.0f]", name, share(values, 0.5), share(values, 0.99));
    };
    both("setup", times.setup);
    both("to_outside", times.toOutside);
    both("to_inside", times.toInside);
    (void)std::printf("}\n");
    std::fflush(stdout);
}

// The one who started us measures while the calls stand still. True for a line that begins with
// 'm': media is wanted, else the end.
bool mediaIsWanted() {
    const int first = std::getchar();
    int octet = first;
    while (octet != '\n' && octet != EOF) {
        octet = std::getchar();
    }
    return first == 'm';
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    std::string script;
    uint32_t mediaMilliseconds = 0;
    CLI::App app("Plays calls between two network namespaces; live_load.py starts it");
    const auto place = [&app](const char* name, const char* help, const auto& take) {
        return app.add_option_function<std::string>(
            name, [take](const std::string& text) { take(parsePlace(text)); }, help);
    };
    const std::map<std::string, Between> betweens = {
        {"gateway", Between::Gateway}, {"helper", Between::Helper}, {"plain", Between::Plain}};
    app.add_option("--script", script, "Calls to play, as script.h tells")->required();
    app.add_option("--inside", options.insideNamespace, "Namespace of the callers")->required();
    app.add_option("--outside", options.outsideNamespace, "Namespace of the called")->required();
    app.add_option("--between", options.between, "What stands between them")
        ->transform(CLI::CheckedTransformer(betweens));
    place("--host", "FIRST:COUNT of the private hosts", [&](const Place& hosts) {
        options.firstHost = hosts.address;
        options.hosts = std::max<uint32_t>(hosts.port, 1);
    })->required();
    place("--public", "ADDRESS:0 of the router", [&](const Place& router) {
        options.publicAddress = router.address;
    })->required();
    place("--called", "ADDRESS:PORT", [&](const Place& called) {
        options.called = called;
    })->required();
    place("--gatekeeper", "ADDRESS:PORT", [&](const Place& gatekeeper) {
        options.gatekeeper = gatekeeper;
    })->required();
    app.add_option("--calls", options.calls, "Number of calls");
    app.add_option("--first", options.first, "Number of the first call");
    app.add_option("--window", options.window, "Calls that are set up at once");
    app.add_option("--rate", options.rate, "Calls begun a second; 0: as many as go");
    app.add_flag("--hold", options.hold, "No call ends before told");
    app.add_option("--media", mediaMilliseconds, "Milliseconds of RTP for a line of 'media'");
    CLI11_PARSE(app, argc, argv);
    rlimit files{1000000, 1000000};
    if (setrlimit(RLIMIT_NOFILE, &files) != 0) {
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }

    const std::vector<Script> scripts = readScripts(script);
    Player player(options, scripts);
    const auto start = Clock::now();
    player.run();
    tell(player, std::chrono::duration<double>(Clock::now() - start).count());
    if (options.hold) {
        while (mediaIsWanted()) {
            uint64_t sent = 0;
            const double before = ownProcessorTime();
            const uint64_t arrived =
                player.sendMedia(std::chrono::milliseconds(mediaMilliseconds), sent);
            (void)std::printf("{\"rtp_sent\": %llu, \"rtp_arrived\": %llu, \"own_cpu\": %.3f}\n",
                              static_cast<unsigned long long>(sent),
                              static_cast<unsigned long long>(arrived),
                              ownProcessorTime() - before);
            std::fflush(stdout);
        }
        player.endCalls();
        tell(player, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return player.counts().failed + player.counts().wrong == 0 ? 0 : 1;
}
