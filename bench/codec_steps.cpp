#include "bench/codec_steps.h"

#include <string_view>

#include "nat/listed/rewrite_mode.h"

namespace bench {
namespace {

PerBlockPool pool;

// The fast-start list of a call-signalling message; null for other messages. The bodies have a list
// type of their own each, so the elements are handed to `use` one by one.
template <typename Use>
void forEachFastStart(const H225H323_UserInformation& information, Use use) {
    const auto& body = information.h323_uu_pdu.h323_message_body;
    const auto each = [&](const auto& owner, uint32_t present) {
        if ((owner.presence & present) != 0) {
            for (uint32_t i = 0; i < owner.fastStart.count; ++i) {
                use(owner.fastStart.elements[i]);
            }
        }
    };
    switch (body.alternative) {
    case H225H323_UU_PDU_h323_message_body_setupChosen:
        return each(*body.value.setup, H225Setup_UUIE_fastStartPresent);
    case H225H323_UU_PDU_h323_message_body_callProceedingChosen:
        return each(*body.value.callProceeding, H225CallProceeding_UUIE_fastStartPresent);
    case H225H323_UU_PDU_h323_message_body_connectChosen:
        return each(*body.value.connect, H225Connect_UUIE_fastStartPresent);
    case H225H323_UU_PDU_h323_message_body_alertingChosen:
        return each(*body.value.alerting, H225Alerting_UUIE_fastStartPresent);
    default:
        return;
    }
}

void decodeElement(const DynOctetString& octets, const PerContext* outer) {
    static H245OpenLogicalChannel channel;
    static PerContext context; // a released one is as good as a cleared one
    pu_initContext(&context, octets.data, octets.numocts, 1);
    pu_setBlockPool(&context, &pool);
    if (outer != nullptr) {
        pu_setLenient(&context, 1);
        pu_recordSpans(&context, outer);
    }
    asn1PD_H245OpenLogicalChannel(&context, &channel);
    pu_freeContext(&context);
}

std::vector<std::max_align_t> memoryFor(const TypeDescription& type) {
    return std::vector<std::max_align_t>(type.size / sizeof(std::max_align_t) + 1);
}

} // namespace

CodecSteps::CodecSteps(const CorpusMessage& message)
    : message_(message),
      hasFastStart_(std::string_view(message.type->name) == "H225H323_UserInformation"),
      record_(memoryFor(*message.type)), scratchRecord_(memoryFor(*message.type)),
      octets_(message.octets.size() + 64) {
    pu_initContext(&decoded_, message.octets.data(), static_cast<uint32_t>(message.octets.size()),
                   1);
    decodes_ = message.type->decode(&decoded_, record_.data()) == PER_OK;
    setRewriteMode(REWRITE_LOSSLESS);
    std::copy(message.octets.begin(), message.octets.end(), octets_.begin());
    edited_ = std::make_unique<cli::EditedMessage>(*message.type, octets_);
}

CodecSteps::~CodecSteps() {
    edited_.reset();
    pu_freeContext(&decoded_);
    pu_drainBlockPool(&pool);
}

int32_t CodecSteps::decodeInto(PerContext& context) {
    return message_.type->decode(&context, scratchRecord_.data());
}

void CodecSteps::decode() {
    static PerContext context; // a released one is as good as a cleared one
    pu_initContext(&context, message_.octets.data(), static_cast<uint32_t>(message_.octets.size()),
                   1);
    pu_setBlockPool(&context, &pool);
    decodeInto(context);
    if (hasFastStart_) {
        forEachFastStart(*reinterpret_cast<const H225H323_UserInformation*>(scratchRecord_.data()),
                         [](const DynOctetString& octets) { decodeElement(octets, nullptr); });
    }
    pu_freeContext(&context);
}

void CodecSteps::decodeLossless() {
    static PerContext context; // a released one is as good as a cleared one
    pu_initContext(&context, message_.octets.data(), static_cast<uint32_t>(message_.octets.size()),
                   1);
    pu_setBlockPool(&context, &pool);
    pu_setLenient(&context, 1);
    pu_recordSpans(&context, nullptr);
    decodeInto(context);
    if (hasFastStart_) {
        forEachFastStart(*reinterpret_cast<const H225H323_UserInformation*>(scratchRecord_.data()),
                         [&](const DynOctetString& octets) { decodeElement(octets, &context); });
    }
    pu_freeContext(&context);
}

void CodecSteps::encode() {
    static uint8_t buffer[4096];
    static PerContext context; // a released one is as good as a cleared one
    pu_initContext(&context, buffer, sizeof buffer, 1);
    pu_setBlockPool(&context, &pool);
    message_.type->encode(&context, record_.data());
    pu_freeContext(&context);
}

void CodecSteps::writeBack() {
    for (const cli::SettableField& field : edited_->fields()) {
        setEndpoint(*field.edit, field.field, readEndpoint(field.field));
    }
}

} // namespace bench
