// Instructions of the hooks per packet of foreign traffic, counted by callgrind, and what the full
// scope takes for a call. Run by scripts/bench.sh --instructions.

#include <valgrind/callgrind.h>

#include <iostream>

#include "bench/calls.h"
#include "bench/foreign_traffic.h"

namespace {

uint32_t doNothing(HostContext*, PacketDescriptor*) {
    return 0;
}

void measure(const char* what, bench::Hook hook) {
    bench::ForeignTraffic traffic(bench::foreignPackets);
    volatile bench::Hook called = hook;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    traffic.pass(called, bench::hostContext());
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(what);
}

} // namespace

int main() {
    measure("empty call", doNothing);
    bench::startModule(0);
    measure("listed receiving", TarvexPacketOnReceiving);
    measure("listed sending", TarvexPacketOnSending);
    for (const size_t calls : {size_t{0}, size_t{1000}}) {
        bench::startFullScope(calls);
        measure(calls == 0 ? "full receiving" : "full-1000-calls receiving",
                TarvexPacketOnReceiving);
        measure(calls == 0 ? "full sending" : "full-1000-calls sending", TarvexPacketOnSending);
    }
    return 0;
}
