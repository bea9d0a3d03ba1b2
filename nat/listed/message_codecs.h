// The message types that the translators decode and encode, in one form for the edit cycle.
#pragma once

#include <cstdint>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

// A decoder and an encoder; both give the codec's status (0 on success). `record` points to the
// record type that the pair was made for.
struct MessageCodec {
    int32_t (*decode)(PerContext* context, void* record);
    int32_t (*encode)(PerContext* context, const void* record);
};

template <typename Record, auto Decode, auto Encode>
inline constexpr MessageCodec recordCodec = {
    [](PerContext* context, void* record) -> int32_t {
        return Decode(context, static_cast<Record*>(record));
    },
    [](PerContext* context, const void* record) -> int32_t {
        return Encode(context, static_cast<const Record*>(record));
    },
};

inline const MessageCodec& codecOf(const H225H323_UserInformation&) {
    return recordCodec<H225H323_UserInformation, asn1PD_H225H323_UserInformation,
                       asn1PE_H225H323_UserInformation>;
}

inline const MessageCodec& codecOf(const H225RasMessage&) {
    return recordCodec<H225RasMessage, asn1PD_H225RasMessage, asn1PE_H225RasMessage>;
}

inline const MessageCodec& codecOf(const H245MultimediaSystemControlMessage&) {
    return recordCodec<H245MultimediaSystemControlMessage,
                       asn1PD_H245MultimediaSystemControlMessage,
                       asn1PE_H245MultimediaSystemControlMessage>;
}

inline const MessageCodec& codecOf(const H245OpenLogicalChannel&) {
    return recordCodec<H245OpenLogicalChannel, asn1PD_H245OpenLogicalChannel,
                       asn1PE_H245OpenLogicalChannel>;
}
