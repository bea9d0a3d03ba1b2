// Cost of the two hooks per packet of foreign traffic, in the listed scope with no call and with
// 50, in the full scope with none and with 1,000, beside a call through a function pointer that
// does nothing. The module is the shared library, called as a host calls it.

#include <benchmark/benchmark.h>

#include "bench/calls.h"
#include "bench/foreign_traffic.h"
#include "include/h323nat.h"

namespace {

using bench::ForeignTraffic;
using bench::Hook;

uint32_t doNothing(HostContext*, PacketDescriptor*) {
    return 0;
}

enum class Scope { listed, full };

void run(benchmark::State& state, Hook hook, size_t calls, Scope scope = Scope::listed) {
    if (scope == Scope::full) {
        bench::startFullScope(calls);
    } else {
        bench::startModule(calls);
    }
    ForeignTraffic traffic(static_cast<size_t>(state.range(0)));
    volatile Hook called = hook;
    for (auto _ : state) {
        traffic.pass(called, bench::hostContext());
    }
    state.counters["ns/packet"] = benchmark::Counter(static_cast<double>(traffic.count()),
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(64)->Arg(4096)->Arg(1'000'000);
}

void emptyCall(benchmark::State& state) {
    run(state, doNothing, 0);
}
void receiving(benchmark::State& state) {
    run(state, TarvexPacketOnReceiving, 0);
}
void sending(benchmark::State& state) {
    run(state, TarvexPacketOnSending, 0);
}
void receivingWith50Calls(benchmark::State& state) {
    run(state, TarvexPacketOnReceiving, 50);
}
void sendingWith50Calls(benchmark::State& state) {
    run(state, TarvexPacketOnSending, 50);
}

void receivingInFullScope(benchmark::State& state) {
    run(state, TarvexPacketOnReceiving, 0, Scope::full);
}
void sendingInFullScope(benchmark::State& state) {
    run(state, TarvexPacketOnSending, 0, Scope::full);
}
void receivingWith1000Calls(benchmark::State& state) {
    run(state, TarvexPacketOnReceiving, 1000, Scope::full);
}
void sendingWith1000Calls(benchmark::State& state) {
    run(state, TarvexPacketOnSending, 1000, Scope::full);
}

BENCHMARK(emptyCall)->Apply(sizes);
BENCHMARK(receiving)->Apply(sizes);
BENCHMARK(sending)->Apply(sizes);
BENCHMARK(receivingWith50Calls)->Apply(sizes);
BENCHMARK(sendingWith50Calls)->Apply(sizes);
BENCHMARK(receivingInFullScope)->Apply(sizes);
BENCHMARK(sendingInFullScope)->Apply(sizes);
BENCHMARK(receivingWith1000Calls)->Apply(sizes);
BENCHMARK(sendingWith1000Calls)->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
