// Instructions per message, counted by callgrind: they repeat where times do not.
// Run by scripts/bench.sh --instructions, which prints the table. Each step runs once with warm
// blocks; its count goes into a profile of its own, labelled "MESSAGE STEP".

#include <valgrind/callgrind.h>

#include <iostream>
#include <string>

#include "bench/codec_steps.h"
#include "bench/locator_step.h"

namespace {

template <typename Step> void measure(const std::string& message, const char* what, Step step) {
    const std::string label = message + " " + what;
    step();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    step();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(label.c_str());
}

} // namespace

int main() {
    for (const bench::CorpusMessage& message : bench::readCorpus()) {
        bench::CodecSteps steps(message);
        if (!steps.decodes()) {
            std::cout << message.name << " has content that the codecs refuse\n";
            continue;
        }
        const bench::LocatorStep locator(message);
        measure(message.name, "locate", [&] { locator.run(placeKindBit(PlaceKind::address)); });
        measure(message.name, "locate-all", [&] { locator.run(allPlaceKinds); });
        measure(message.name, "decode", [&] { steps.decode(); });
        measure(message.name, "encode", [&] { steps.encode(); });
        measure(message.name, "lossless", [&] {
            steps.decodeLossless();
            steps.writeBack();
        });
    }
    return 0;
}
