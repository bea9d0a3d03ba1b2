// Half of the mutations of the type target change fields, half change octets.
#include <algorithm>
#include <cstring>

#include "H.323/registry.h"
#include "fuzz/memory_meter.h"
#include "fuzz/value_mutator.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
    using namespace fuzzing;
    constexpr size_t head = 3; // options, type
    Random random(seed);
    if (random() % 2 == 0 || size < head || maxSize < head) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    memoryMeter().succeedFor(FailingAllocator::never);
    const size_t index = (data[1] * size_t{256} + data[2]) % registeredTypeCount();
    const Octets mutated =
        ValueMutator(random).mutate(registeredType(index), {data + head, data + size});
    if (mutated.empty() || mutated.size() > maxSize - head) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::copy(mutated.begin(), mutated.end(), data + head);
    return head + mutated.size();
}
