// A message decoded apart from the translators.
#pragma once

#include <cstddef>
#include <memory>

#include "asn1per/asn1per.h"

namespace test_support {

/// The record of a message and the context that holds what it points to. The octets must outlive
/// it.
template <typename Record> class Decoded {
public:
    template <typename Decoder>
    Decoded(Decoder decode, const uint8_t* octets, size_t count, bool lenient = false)
        : record(std::make_unique<Record>()) {
        pu_initContext(&context_, octets, static_cast<uint32_t>(count), 1);
        pu_setLenient(&context_, lenient ? 1 : 0);
        valid = decode(&context_, record.get()) == 0;
    }
    ~Decoded() { pu_freeContext(&context_); }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    std::unique_ptr<Record> record;
    bool valid;

private:
    PerContext context_ = {};
};

} // namespace test_support
