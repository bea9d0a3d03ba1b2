// A value of any registered type together with the context that holds its parts, for tools and
// tests. Not part of the module library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "asn1per/type_description.h"

class MessageValue {
public:
    explicit MessageValue(const TypeDescription& type);
    ~MessageValue();
    MessageValue(const MessageValue&) = delete;
    MessageValue& operator=(const MessageValue&) = delete;

    // Decodes one value from the start of `encoding`, which must outlive this object. To be called
    // once. Returns the decoder's status; after a failure the value is not to be looked at.
    int32_t decode(std::span<const uint8_t> encoding);

    // Octets that decode() has read, a last octet read in part included.
    size_t consumed() const;

    // Appends nothing: *encoding becomes the value's encoding. Returns the encoder's status.
    int32_t encode(std::vector<uint8_t>* encoding) const;

    // Encodes over `place`, which may be the very octets that the value was decoded from; *length
    // receives the octets of the encoding. Returns the encoder's status.
    int32_t encodeInto(std::span<uint8_t> place, size_t* length) const;

    const TypeDescription& type() const { return description; }
    const void* record() const { return memory.data(); }
    void* record() { return memory.data(); }

    // The decoding context, so that it can be set up before decode().
    PerContext* context() { return &decoding; }

private:
    int32_t encodeWith(PerContext* ctx, const uint8_t* buffer, size_t size) const;

    const TypeDescription& description;
    std::vector<std::max_align_t> memory;
    PerContext decoding{};
};
