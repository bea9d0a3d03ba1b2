// Time per message: decode, decode + encode, and decode + write-back of lossless rewriting.

#include <benchmark/benchmark.h>

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

} // namespace

int main(int argc, char** argv) {
    const std::vector<bench::CorpusMessage> corpus = bench::readCorpus();
    for (const bench::CorpusMessage& message : corpus) {
        const auto steps = std::make_shared<bench::CodecSteps>(message);
        if (!steps->decodes()) {
            continue;
        }
        add("decode", message.name, [steps] { steps->decode(); });
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
