// Instructions of the hooks per packet of foreign traffic, counted by callgrind, and what the full
// scope takes for a call. Run by scripts/bench.sh --instructions.

#include <valgrind/callgrind.h>

#include <string>
#include <utility>

#include "bench/calls.h"
#include "bench/foreign_traffic.h"

namespace {

uint32_t doNothing(HostContext*, PacketDescriptor*) {
    return 0;
}

void measure(const std::string& what, bench::Hook hook, bench::Mix mix) {
    bench::ForeignTraffic traffic(bench::foreignPackets, mix);
    volatile bench::Hook called = hook;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    traffic.pass(called, bench::hostContext());
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(what.c_str());
}

void measureHooks(const std::string& scope) {
    for (const auto& [mix, kind] :
         {std::pair(bench::Mix::tcpAndUdp, ""), {bench::Mix::tcp, "-tcp"}}) {
        measure(scope + kind + " receiving", TarvexPacketOnReceiving, mix);
        measure(scope + kind + " sending", TarvexPacketOnSending, mix);
    }
}

} // namespace

int main() {
    measure("empty call", doNothing, bench::Mix::tcpAndUdp);
    for (const size_t calls : {size_t{0}, size_t{50}}) {
        bench::startModule(calls);
        measureHooks(calls == 0 ? "listed" : "listed-50-calls");
    }
    for (const size_t calls : {size_t{0}, size_t{1000}}) {
        bench::startFullScope(calls);
        measureHooks(calls == 0 ? "full" : "full-1000-calls");
    }
    return 0;
}
