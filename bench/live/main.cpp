// Plays many calls between two network namespaces and tells how it went, as lines of JSON.
// live_load.py makes the namespaces and what stands between them.

#include "bench/live/player.h"

#include <getopt.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace load;

constexpr const char* usage =
    "usage: bench_live --script FILE --inside NAMESPACE --outside NAMESPACE --host FIRST:COUNT\n"
    "                  --public ADDRESS:0 --called PLACE --gatekeeper PLACE\n"
    "                  [--between gateway|helper|plain] [--calls N] [--first N] [--window N] "
    "[--rate N]\n"
    "                  [--hold [--media MILLISECONDS]]\n";

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
    long mediaMilliseconds = 0;
    const option known[] = {{"script", required_argument, nullptr, 's'},
                            {"inside", required_argument, nullptr, 'i'},
                            {"outside", required_argument, nullptr, 'o'},
                            {"host", required_argument, nullptr, 'h'},
                            {"public", required_argument, nullptr, 'p'},
                            {"called", required_argument, nullptr, 'c'},
                            {"gatekeeper", required_argument, nullptr, 'g'},
                            {"between", required_argument, nullptr, 'b'},
                            {"calls", required_argument, nullptr, 'n'},
                            {"window", required_argument, nullptr, 'w'},
                            {"first", required_argument, nullptr, 'f'},
                            {"rate", required_argument, nullptr, 'r'},
                            {"hold", no_argument, nullptr, 'H'},
                            {"media", required_argument, nullptr, 'm'},
                            {nullptr, 0, nullptr, 0}};
    const auto number = [] { return static_cast<uint32_t>(std::strtoul(optarg, nullptr, 10)); };
    for (int chosen = 0; (chosen = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (chosen) {
        case 's':
            script = optarg;
            break;
        case 'i':
            options.insideNamespace = optarg;
            break;
        case 'o':
            options.outsideNamespace = optarg;
            break;
        case 'h':
            options.firstHost = parsePlace(optarg).address;
            options.hosts = std::max<uint32_t>(parsePlace(optarg).port, 1);
            break;
        case 'p':
            options.publicAddress = parsePlace(optarg).address;
            break;
        case 'c':
            options.called = parsePlace(optarg);
            break;
        case 'g':
            options.gatekeeper = parsePlace(optarg);
            break;
        case 'b':
            options.between = *optarg == 'g'   ? Between::Gateway
                              : *optarg == 'h' ? Between::Helper
                                               : Between::Plain;
            break;
        case 'n':
            options.calls = number();
            break;
        case 'f':
            options.first = number();
            break;
        case 'w':
            options.window = number();
            break;
        case 'r':
            options.rate = std::strtod(optarg, nullptr);
            break;
        case 'H':
            options.hold = true;
            break;
        case 'm':
            mediaMilliseconds = static_cast<long>(number());
            break;
        default:
            (void)std::fputs(usage, stderr);
            return 2;
        }
    }
    if (script.empty() || options.insideNamespace.empty() || options.called.port == 0) {
        (void)std::fputs(usage, stderr);
        return 2;
    }
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
