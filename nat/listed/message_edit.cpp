#include "nat/listed/message_edit.h"

#include <cstring>

#include "nat/listed/observed.h"
#include "nat/listed/rewrite_mode.h"
#include "nat/listed/translation_counts.h"
#include "nat/listed/unchanged_check.h"

static constexpr uint8_t alignedVariant = 1;

// Heap blocks and scratch buffers, kept from message to message.
static PerBlockPool blockPool;

static int32_t openContext(PerContext& context, uint8_t* octets, size_t count) {
    // A context on the stack is uninitialised memory; only the marker tells.
    context.initMarker = 0;
    const int32_t status =
        pu_initContext(&context, octets, static_cast<uint32_t>(count), alignedVariant);
    pu_setBlockPool(&context, &blockPool);
    return status;
}

static int32_t encodeInto(const MessageCodec& codec, const void* record, uint8_t* octets,
                          size_t capacity, size_t& length) {
    PerContext encoder;
    int32_t status = openContext(encoder, octets, capacity);
    if (status == PER_OK) {
        status = codec.encode(&encoder, record);
    }
    uint32_t encoded = 0;
    pe_getMsgPtr(&encoder, &encoded);
    length = encoded;
    pu_freeContext(&encoder);
    return status;
}

// Debug builds: whether the record as decoded encodes to the octets that it came from.
static bool encodesExactly(const MessageEdit& edit) {
    static uint8_t encoding[UINT16_MAX];
    if (edit.octets.count > sizeof encoding) {
        return false;
    }
    size_t length = 0;
    return encodeInto(*edit.codec, edit.record, encoding, edit.octets.count, length) == PER_OK &&
           length == edit.octets.count &&
           std::memcmp(encoding, edit.octets.data, edit.octets.count) == 0;
}

static bool lossless() {
    return rewriteMode == REWRITE_LOSSLESS;
}

static void noteDecoded(MessageEdit& edit) {
    if constexpr (debugChecks) {
        countTranslation(&TranslationCounts::messagesDecoded);
        if (lossless() && edit.outer == nullptr) {
            rememberPacket(edit.octets, edit.place);
        } else if (!lossless()) {
            edit.exactlyEncodable = encodesExactly(edit);
        }
    }
}

bool openMessage(MessageEdit& edit, MessageEdit* outer, MessageOctets octets,
                 const PacketPlace& place, const MessageCodec& codec, void* record) {
    edit.codec = &codec;
    edit.record = record;
    edit.octets = octets;
    edit.place = place;
    edit.outer = outer;
    edit.changed = false;
    // An empty buffer would make the context take one of its own.
    if (octets.data != nullptr && octets.count > 0) {
        int32_t status = openContext(edit.context, octets.data, octets.count);
        if (status == PER_OK) {
            if (lossless()) {
                pu_setLenient(&edit.context, 1);
                pu_recordSpans(&edit.context, outer != nullptr ? &outer->context : nullptr);
            }
            status = codec.decode(&edit.context, record);
        }
        if (status == PER_OK) {
            noteDecoded(edit);
            observeRead(edit, true);
            return true;
        }
        pu_freeContext(&edit.context);
    }
    observeRead(edit, false);
    countTranslation(outer == nullptr ? &TranslationCounts::messagesNotDecoded
                                      : &TranslationCounts::elementsNotDecoded);
    return false;
}

// The octets of the packet that a decoded field came from; null, and counted, when the packet of
// this hook call does not hold all `count` of them as they were decoded.
static uint8_t* placeInPacket(const MessageEdit& edit, const uint8_t* field, uint32_t count) {
    const uint8_t* source = pu_sourceOf(&edit.context, field, count);
    if (source == nullptr) {
        countTranslation(&TranslationCounts::placesUnknown);
        return nullptr;
    }
    const MessageEdit& message = edit.outer != nullptr ? *edit.outer : edit;
    const ptrdiff_t index = message.place.start + (source - message.octets.data);
    if (index < 0 || static_cast<size_t>(index) + count > message.place.length) {
        countTranslation(&TranslationCounts::placesGone);
        return nullptr;
    }
    uint8_t* place = message.place.segment + index;
    // The stream buffer may hold older octets than a retransmitted segment does.
    if (std::memcmp(place, source, count) != 0) {
        countTranslation(&TranslationCounts::placesDiffer);
        return nullptr;
    }
    return place;
}

static void writeOctets(MessageEdit& edit, const uint8_t* field, const uint8_t* octets,
                        uint32_t count) {
    uint8_t* place = placeInPacket(edit, field, count);
    if (place == nullptr) {
        return;
    }
    std::memcpy(place, octets, count);
    MessageEdit& message = edit.outer != nullptr ? *edit.outer : edit;
    message.changed = true;
    countTranslation(&TranslationCounts::fieldsWritten);
    if constexpr (debugChecks) {
        rememberSet(place, count);
    }
}

void setAddress(MessageEdit& edit, const EndpointField& field, uint32_t address) {
    if (lossless()) {
        uint8_t octets[addressOctets];
        storeAddress(octets, address);
        writeOctets(edit, field.ip, octets, addressOctets);
    }
    storeAddress(field.ip, address);
}

void setEndpoint(MessageEdit& edit, const EndpointField& field, Endpoint endpoint) {
    if (lossless()) {
        uint8_t octets[endpointOctets];
        storeEndpoint(octets, endpoint);
        writeOctets(edit, field.ip, octets, endpointOctets);
    }
    storeAddress(field.ip, endpoint.address);
    *field.port = endpoint.port;
}

int32_t writeBack(MessageEdit& edit) {
    if (lossless()) {
        return PER_OK;
    }
    const PacketPlace& place = edit.place;
    if (place.start < 0 || static_cast<size_t>(place.start) + edit.octets.count > place.length) {
        countTranslation(&TranslationCounts::messagesGone);
        return PER_OK;
    }
    size_t length = 0;
    const int32_t status = encodeInto(
        *edit.codec, edit.record, edit.place.segment + edit.place.start, edit.octets.count, length);
    edit.changed = true;
    if constexpr (debugChecks) {
        countTranslation(&TranslationCounts::messagesEncoded);
        if (!edit.exactlyEncodable) {
            countTranslation(&TranslationCounts::messagesNotReproduced);
        }
        if (status != PER_OK) {
            countTranslation(&TranslationCounts::encodingsFailed);
        }
    }
    return status;
}

void closeMessage(MessageEdit& edit) {
    observeDone(edit);
    if constexpr (debugChecks) {
        if (lossless() && edit.outer == nullptr) {
            checkPacket();
        }
    }
    pu_freeContext(&edit.context);
}

void releaseMessageMemory() {
    pu_drainBlockPool(&blockPool);
}
