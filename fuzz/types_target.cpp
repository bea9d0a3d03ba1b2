// Every type's decoder and encoder on exactly sized memory: decoding, encoding what was decoded,
// the in-place cycle, and decoding the new encoding, which gives the same value.
//
// Input: options, type (two octets), the encoding.
#include <cstring>
#include <memory>

#include "H.323/registry.h"
#include "fuzz/input.h"
#include "fuzz/memory_meter.h"
#include "fuzz/require.h"
#include "fuzz/value.h"

namespace fuzzing {

namespace {

enum Option : uint8_t {
    optionLenient = 0x80,    // as in rewrite mode 1
    optionAllocations = 0x7F // so many allocations succeed; 0: all
};

// A decoder has to set everything that an encoder reads: nothing here is a valid pointer, count or
// alternative.
constexpr uint8_t staleMemory = 0xA5;

// A decoder's context with the value that it decoded and the octets that it read.
class Decoded {
public:
    Decoded(const TypeDescription& type, const Octets& octets, bool lenient)
        : octets_(std::make_unique<uint8_t[]>(octets.size())), size_(octets.size()),
          value_(::operator new(type.size)), type_(type) {
        std::copy(octets.begin(), octets.end(), octets_.get());
        std::memset(value_, staleMemory, type.size);
        status_ = pu_initContext(&context_, octets_.get(), static_cast<uint32_t>(size_), 1);
        if (status_ != PER_OK) {
            return;
        }
        if (lenient) {
            pu_setLenient(&context_, 1);
            pu_recordSpans(&context_, nullptr);
        }
        status_ = type.decode(&context_, value_);
    }
    ~Decoded() {
        pu_freeContext(&context_);
        ::operator delete(value_);
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    [[nodiscard]] int32_t status() const { return status_; }
    [[nodiscard]] const void* value() const { return value_; }

    /// Encodes over the very octets that were decoded. Gives the encoding; empty when it failed.
    Octets encodeInPlace() {
        PerContext encoder{};
        Octets encoding;
        if (pu_initContext(&encoder, octets_.get(), static_cast<uint32_t>(size_), 1) == PER_OK &&
            type_.encode(&encoder, value_) == PER_OK) {
            uint32_t length = 0;
            const uint8_t* start = pe_getMsgPtr(&encoder, &length);
            encoding.assign(start, start + length);
        }
        pu_freeContext(&encoder);
        return encoding;
    }

private:
    std::unique_ptr<uint8_t[]> octets_;
    size_t size_;
    void* value_;
    const TypeDescription& type_;
    PerContext context_{};
    int32_t status_ = PER_OK;
};

int32_t encode(const TypeDescription& type, const void* value, Octets& encoding) {
    PerContext encoder{};
    int32_t status = pu_initContext(&encoder, nullptr, 0, 1);
    if (status == PER_OK) {
        status = type.encode(&encoder, value);
    }
    if (status == PER_OK) {
        uint32_t length = 0;
        const uint8_t* start = pe_getMsgPtr(&encoder, &length);
        encoding.assign(start, start + length);
    }
    pu_freeContext(&encoder);
    return status;
}

void requireCycle(const TypeDescription& type, Decoded& decoded) {
    const bool encodable = isEncodable(type, decoded.value());
    Octets encoding;
    const int32_t status = encode(type, decoded.value(), encoding);
    require(status == PER_OK || !encodable, "what was decoded encodes");
    const Octets inPlace = decoded.encodeInPlace();
    if (status != PER_OK || !encodable || encoding.empty()) {
        return;
    }
    // A shorter buffer may cut the encoding off; it never changes it.
    require(inPlace.empty() || inPlace == encoding, "an encoding does not depend on its buffer");

    Decoded again(type, encoding, false);
    require(again.status() == PER_OK, "an encoding decodes");
    require(sameValue(type, decoded.value(), again.value()), "an encoding holds the value");
    Octets encodingAgain;
    require(encode(type, again.value(), encodingAgain) == PER_OK && encodingAgain == encoding,
            "equal values have one encoding");
}

} // namespace

} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    Input input(data, size);
    const uint8_t options = input.octet();
    const TypeDescription& type = registeredType(input.number16() % registeredTypeCount());
    const Octets octets = input.remainder();
    if (octets.empty()) {
        return 0;
    }
    const size_t allocations = options & optionAllocations;
    memoryMeter().drainTakenOctets();
    memoryMeter().succeedFor(allocations == 0 ? FailingAllocator::never : allocations - 1);
    {
        Decoded decoded(type, octets, (options & optionLenient) != 0);
        require(memoryMeter().drainTakenOctets() <=
                    memoryBound(octets.size(), memoryPerOctet(type)),
                "the memory taken for a message is bounded by its size");
        if (decoded.status() == PER_OK && allocations == 0) {
            requireCycle(type, decoded);
        }
    }
    require(memoryMeter().liveBlocks() == 0, "a released context leaves no memory behind");
    return 0;
}
