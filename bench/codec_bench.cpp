// Time per message: locating addresses, decode, decode + encode, and decode + write-back of
// lossless rewriting. Locating and decoding also with cold caches, which is what a box that
// forwards other traffic sees.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

#include "bench/codec_steps.h"
#include "bench/locator_step.h"

namespace {

using Steps = std::shared_ptr<bench::CodecSteps>;

template <typename Step> void add(const char* what, const std::string& name, Step step) {
    benchmark::RegisterBenchmark((std::string(what) + "/" + name).c_str(),
                                 [step](benchmark::State& state) {
                                     for (auto _ : state) {
                                         step();
                                     }
                                 });
}

// Takes everything else out of the caches: larger than any of them.
class CacheFlush {
public:
    void run() {
        for (size_t i = 0; i < memory_.size(); i += 64) {
            ++memory_[i];
        }
        benchmark::DoNotOptimize(memory_.data());
    }

private:
    std::vector<uint8_t> memory_ = std::vector<uint8_t>(size_t{256} << 20);
};

template <typename Step> void addCold(const char* what, const std::string& name, Step step) {
    using Clock = std::chrono::steady_clock;
    benchmark::RegisterBenchmark((std::string(what) + "/" + name).c_str(),
                                 [step](benchmark::State& state) {
                                     CacheFlush flush;
                                     for (auto _ : state) {
                                         flush.run();
                                         const Clock::time_point start = Clock::now();
                                         step();
                                         const std::chrono::duration<double> time =
                                             Clock::now() - start;
                                         state.SetIterationTime(time.count());
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(50);
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<bench::CorpusMessage> corpus = bench::readCorpus();
    for (const bench::CorpusMessage& message : corpus) {
        const auto steps = std::make_shared<bench::CodecSteps>(message);
        if (!steps->decodes()) {
            continue;
        }
        const bench::LocatorStep locator(message);
        const auto locate = [locator] { locator.run(placeKindBit(PlaceKind::address)); };
        add("locate", message.name, locate);
        add("decode", message.name, [steps] { steps->decode(); });
        if (message.name == "Setup") {
            addCold("cold locate", message.name, locate);
            addCold("cold decode", message.name, [steps] { steps->decode(); });
        }
        add("decode+encode", message.name, [steps] {
            steps->decode();
            steps->encode();
        });
        add("lossless", message.name, [steps] {
            steps->decodeLossless();
            steps->writeBack();
        });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
