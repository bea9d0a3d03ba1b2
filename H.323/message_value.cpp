#include "H.323/message_value.h"

#include <cstring>

namespace {

// Decoders do not clear records. A pattern makes a member that was wrongly left unset stand out.
constexpr int unset = 0xA5;

// Contexts count octets in 32 bits.
uint32_t contextSize(size_t octets) {
    return octets > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(octets);
}

// A context takes a null buffer for the wish to have one of its own.
const uint8_t* addressOf(std::span<const uint8_t> octets) {
    static const uint8_t nothing = 0;
    return octets.empty() ? &nothing : octets.data();
}

} // namespace

MessageValue::MessageValue(const TypeDescription& type)
    : description(type), memory(type.size / sizeof(std::max_align_t) + 1) {
    std::memset(memory.data(), unset, memory.size() * sizeof(std::max_align_t));
}

MessageValue::~MessageValue() {
    pu_freeContext(&decoding);
}

int32_t MessageValue::decode(std::span<const uint8_t> encoding) {
    const int32_t status =
        pu_initContext(&decoding, addressOf(encoding), contextSize(encoding.size()), 1);
    return status == PER_OK ? description.decode(&decoding, memory.data()) : status;
}

size_t MessageValue::consumed() const {
    return static_cast<size_t>((pu_bitPosition(&decoding) + 7) / 8);
}

int32_t MessageValue::encode(std::vector<uint8_t>* encoding) const {
    PerContext ctx{};
    const int32_t status = encodeWith(&ctx, nullptr, 0);
    if (status == PER_OK) {
        uint32_t length = 0;
        const uint8_t* start = pe_getMsgPtr(&ctx, &length);
        encoding->assign(start, start + length);
    }
    pu_freeContext(&ctx);
    return status;
}

int32_t MessageValue::encodeInto(std::span<uint8_t> place, size_t* length) const {
    PerContext ctx{};
    const int32_t status = encodeWith(&ctx, place.data(), place.size());
    uint32_t octets = 0;
    pe_getMsgPtr(&ctx, &octets);
    *length = octets;
    pu_freeContext(&ctx);
    return status;
}

int32_t MessageValue::encodeWith(PerContext* ctx, const uint8_t* buffer, size_t size) const {
    const int32_t status = pu_initContext(ctx, buffer, contextSize(size), 1);
    return status == PER_OK ? description.encode(ctx, memory.data()) : status;
}
