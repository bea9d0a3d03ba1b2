// Cost of the two hooks per packet of foreign traffic, with no call and with 50 calls active,
// beside a call through a function pointer that does nothing. The module is the shared library,
// called as a host calls it.

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "bench/calls.h"
#include "include/h323nat.h"

namespace {

using Hook = uint32_t (*)(HostContext*, PacketDescriptor*);

constexpr size_t packetSpacing = 512; // as in a driver's ring
constexpr size_t headerOctets = 40;

uint32_t doNothing(HostContext*, PacketDescriptor*) {
    return 0;
}

// Packets that no rule can match, each in a line of memory of its own: headers in host byte order,
// half TCP, half UDP, random addresses, ports above the well-known ones.
class ForeignTraffic {
public:
    explicit ForeignTraffic(size_t count)
        : memory_(std::make_unique<uint8_t[]>(count * packetSpacing)), descriptors_(count) {
        std::mt19937 random(1);
        for (size_t i = 0; i < count; ++i) {
            uint8_t* ip = memory_.get() + i * packetSpacing;
            const bool tcp = random() % 2 == 0;
            ip[0] = 0x45;
            put<uint16_t>(ip + 2, static_cast<uint16_t>(headerOctets + 400));
            ip[9] = tcp ? 6 : 17;
            put<uint32_t>(ip + 12, 0x0A000000U + static_cast<uint32_t>(random() % 65536));
            put<uint32_t>(ip + 16, static_cast<uint32_t>(random() | 0x40000000U));
            uint8_t* transport = ip + 20;
            put<uint16_t>(transport, static_cast<uint16_t>(10000 + random() % 50000));
            put<uint16_t>(transport + 2,
                          tcp ? 443 : static_cast<uint16_t>(10000 + random() % 50000));
            put<uint16_t>(transport + 4, 420);
            transport[12] = 0x50;
            transport[13] = 0x10;
            PacketDescriptor& descriptor = descriptors_[i];
            descriptor.ipHeader = ip;
            descriptor.moduleIpHeader = ip;
            descriptor.transportHeader = transport;
            descriptor.transportLength = 420;
        }
    }

    void pass(Hook hook, HostContext* context) {
        for (PacketDescriptor& descriptor : descriptors_) {
            hook(context, &descriptor);
        }
    }

    size_t count() const { return descriptors_.size(); }

private:
    template <typename Field> static void put(uint8_t* where, Field value) {
        std::memcpy(where, &value, sizeof value);
    }

    std::unique_ptr<uint8_t[]> memory_;
    std::vector<PacketDescriptor> descriptors_;
};

void run(benchmark::State& state, Hook hook, size_t calls) {
    bench::startModule(calls);
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

BENCHMARK(emptyCall)->Apply(sizes);
BENCHMARK(receiving)->Apply(sizes);
BENCHMARK(sending)->Apply(sizes);
BENCHMARK(receivingWith50Calls)->Apply(sizes);
BENCHMARK(sendingWith50Calls)->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
