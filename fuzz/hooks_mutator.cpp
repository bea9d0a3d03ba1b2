// Mutations of the hook target: fields of a message inside its frame, the order of the steps, or
// any octet.
#include <algorithm>

#include "H.323/registry.h"
#include "fuzz/call_script.h"
#include "fuzz/memory_meter.h"
#include "fuzz/value_mutator.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace fuzzing {

namespace {

const TypeDescription& messageType(const Step& step) {
    static const TypeDescription* const signalling = findType("H225H323_UserInformation");
    static const TypeDescription* const control = findType("H245MultimediaSystemControlMessage");
    static const TypeDescription* const ras = findType("H225RasMessage");
    if (step.kind == StepKind::UdpSent || step.kind == StepKind::UdpReceived) {
        return *ras;
    }
    return step.framing == Framing::Tpkt ? *control : *signalling;
}

void mutateOctets(Octets& octets) {
    constexpr size_t growth = 64;
    const size_t size = octets.size();
    octets.resize(size + growth);
    octets.resize(LLVMFuzzerMutate(octets.data(), size, octets.size()));
}

void mutateStep(Step& step, Random& random) {
    switch (random() % 8) {
    case 0:
        mutateOctets(step.payload);
        break;
    case 1:
        step.cut = static_cast<uint8_t>(random() % 2 == 0 ? 0 : 1 + random() % 60);
        break;
    case 2:
        step.shift = static_cast<int8_t>(random() % 4 == 0 ? random() >> 4 : 0);
        break;
    case 3:
        step.lie = static_cast<int8_t>(static_cast<int>(random() % 9) - 4);
        break;
    default: {
        Octets mutated = ValueMutator(random).mutate(messageType(step), step.payload);
        if (!mutated.empty() && mutated.size() <= UINT16_MAX) {
            step.payload = std::move(mutated);
        }
        break;
    }
    }
}

void mutateOrder(std::vector<Step>& steps, Random& random) {
    const auto any = [&] {
        return steps.begin() + static_cast<ptrdiff_t>(random() % steps.size());
    };
    switch (random() % 4) {
    case 0:
        steps.erase(any());
        break;
    case 1: {
        const Step copy = *any();
        steps.insert(any(), copy);
        break;
    }
    case 2:
        std::iter_swap(any(), any());
        break;
    default: {
        Step setting;
        setting.kind = random() % 2 == 0 ? StepKind::Settings : StepKind::Wait;
        setting.flags = static_cast<uint8_t>(random() >> 5);
        setting.localPort = static_cast<uint16_t>(random() % 64);
        steps.insert(any(), setting);
        break;
    }
    }
}

} // namespace

} // namespace fuzzing

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
    using namespace fuzzing;
    Random random(seed);
    std::vector<Step> steps = parseScript(data, size);
    if (steps.empty() || random() % 4 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    memoryMeter().succeedFor(FailingAllocator::never);
    if (random() % 4 == 0) {
        mutateOrder(steps, random);
    } else {
        mutateStep(steps[random() % steps.size()], random);
    }
    const Octets mutated = formatScript(steps);
    if (mutated.empty() || mutated.size() > maxSize) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::copy(mutated.begin(), mutated.end(), data);
    return mutated.size();
}
