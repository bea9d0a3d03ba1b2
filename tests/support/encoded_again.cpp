#include "tests/support/encoded_again.h"

#include <cstring>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "tests/support/decoded.h"

namespace test_support {

namespace {

template <typename Record, typename Encoder>
void encodeOver(Encoder encode, const Record& record, uint8_t* octets, size_t count) {
    PerContext context = {};
    pu_initContext(&context, octets, static_cast<uint32_t>(count), 1);
    encode(&context, &record); // what it wrote before a failure stays
    pu_freeContext(&context);
}

template <typename Record, typename Decoder, typename Encoder>
void cycle(Decoder decode, Encoder encode, const uint8_t* rewritten, uint8_t* target,
           size_t count) {
    const Decoded<Record> message(decode, rewritten, count);
    if (message.valid) {
        encodeOver(encode, *message.record, target, count);
    }
}

H225Setup_UUIE_fastStart* fastStartOf(const Decoded<H225H323_UserInformation>& message) {
    const auto& body = message.record->h323_uu_pdu.h323_message_body;
    return message.valid && body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen &&
                   (body.value.setup->presence & H225Setup_UUIE_fastStartPresent) != 0
               ? &body.value.setup->fastStart
               : nullptr;
}

void cycleUserInformation(const uint8_t* rewritten, uint8_t* target, size_t count, bool fastStart) {
    const Octets original(target, target + count);
    const Decoded<H225H323_UserInformation> before(asn1PD_H225H323_UserInformation, original.data(),
                                                   count);
    const Decoded<H225H323_UserInformation> message(asn1PD_H225H323_UserInformation, rewritten,
                                                    count);
    if (!message.valid) {
        return;
    }
    if (fastStart && fastStartOf(message) != nullptr) {
        H225Setup_UUIE_fastStart& elements = *fastStartOf(message);
        for (uint32_t i = 0; i < elements.count; ++i) {
            DynOctetString& element = elements.elements[i];
            DynOctetString& old = fastStartOf(before)->elements[i];
            if (std::memcmp(old.data, element.data, element.numocts) != 0) {
                cycle<H245OpenLogicalChannel>(asn1PD_H245OpenLogicalChannel,
                                              asn1PE_H245OpenLogicalChannel, element.data, old.data,
                                              element.numocts);
            }
            element = old;
        }
    }
    encodeOver(asn1PE_H225H323_UserInformation, *message.record, target, count);
}

} // namespace

Octets encodedAgain(const Octets& original, const Octets& rewritten, size_t start, MessageKind kind,
                    bool fastStart) {
    Octets payload = original;
    uint8_t* target = payload.data() + start;
    const uint8_t* source = rewritten.data() + start;
    const size_t count = payload.size() - start;
    switch (kind) {
    case MessageKind::userInformation:
        cycleUserInformation(source, target, count, fastStart);
        break;
    case MessageKind::ras:
        cycle<H225RasMessage>(asn1PD_H225RasMessage, asn1PE_H225RasMessage, source, target, count);
        break;
    case MessageKind::control:
        cycle<H245MultimediaSystemControlMessage>(asn1PD_H245MultimediaSystemControlMessage,
                                                  asn1PE_H245MultimediaSystemControlMessage, source,
                                                  target, count);
        break;
    }
    return payload;
}

} // namespace test_support
