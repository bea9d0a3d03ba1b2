// Time per message: decode, decode + encode, and decode + write-back of lossless rewriting. Also a
// decode with cold caches, which is what a box that forwards other traffic sees.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

#include "bench/codec_steps.h"

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

void addCold(const std::string& name, const Steps& steps) {
    using Clock = std::chrono::steady_clock;
    benchmark::RegisterBenchmark(("cold decode/" + name).c_str(),
                                 [steps](benchmark::State& state) {
                                     CacheFlush flush;
                                     for (auto _ : state) {
                                         flush.run();
                                         const Clock::time_point start = Clock::now();
                                         steps->decode();
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
        add("decode", message.name, [steps] { steps->decode(); });
        if (message.name == "Setup") {
            addCold(message.name, steps);
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
