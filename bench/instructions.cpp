// Instructions per message, counted by callgrind: they repeat where times do not.
// Run by scripts/bench.sh --instructions, which prints the table. Each measured step runs once with
// warm blocks; its count goes into a profile of its own, named "MESSAGE step".

#include <valgrind/callgrind.h>

#include <cstring>
#include <iostream>

#include "bench/corpus.h"
#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

namespace {

using bench::CorpusMessage;

PerBlockPool pool;
std::vector<uint64_t> record(1 << 16);

// The fast-start elements of a call-signalling message; none for other messages.
std::vector<DynOctetString> fastStartOf(const CorpusMessage& message) {
    if (std::strcmp(message.type->name, "H225H323_UserInformation") != 0) {
        return {};
    }
    const auto* information = reinterpret_cast<const H225H323_UserInformation*>(record.data());
    const auto& body = information->h323_uu_pdu.h323_message_body;
    const auto elements = [](const auto& list) {
        return std::vector<DynOctetString>(list.elements, list.elements + list.count);
    };
    switch (body.alternative) {
    case 1:
        return (body.value.setup->presence & H225Setup_UUIE_fastStartPresent) != 0
                   ? elements(body.value.setup->fastStart)
                   : std::vector<DynOctetString>();
    case 2:
        return (body.value.callProceeding->presence & H225CallProceeding_UUIE_fastStartPresent) != 0
                   ? elements(body.value.callProceeding->fastStart)
                   : std::vector<DynOctetString>();
    case 3:
        return (body.value.connect->presence & H225Connect_UUIE_fastStartPresent) != 0
                   ? elements(body.value.connect->fastStart)
                   : std::vector<DynOctetString>();
    case 4:
        return (body.value.alerting->presence & H225Alerting_UUIE_fastStartPresent) != 0
                   ? elements(body.value.alerting->fastStart)
                   : std::vector<DynOctetString>();
    default:
        return {};
    }
}

int32_t decode(PerContext& context, const CorpusMessage& message) {
    pu_initContext(&context, message.octets.data(), static_cast<uint32_t>(message.octets.size()),
                   1);
    pu_setBlockPool(&context, &pool);
    return message.type->decode(&context, record.data());
}

int32_t decodeElement(const DynOctetString& octets) {
    static H245OpenLogicalChannel channel;
    PerContext context{};
    pu_initContext(&context, octets.data, octets.numocts, 1);
    pu_setBlockPool(&context, &pool);
    const int32_t status = asn1PD_H245OpenLogicalChannel(&context, &channel);
    pu_freeContext(&context);
    return status;
}

int32_t encode(const CorpusMessage& message) {
    static uint8_t buffer[4096];
    PerContext context{};
    pu_initContext(&context, buffer, sizeof buffer, 1);
    pu_setBlockPool(&context, &pool);
    const int32_t status = message.type->encode(&context, record.data());
    pu_freeContext(&context);
    return status;
}

template <typename Step> void measure(const CorpusMessage& message, const char* what, Step step) {
    const std::string label = message.name + " " + what;
    step();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    step();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(label.c_str());
}

void measureMessage(const CorpusMessage& message) {
    PerContext context{};
    if (decode(context, message) != PER_OK) {
        std::cout << message.name << ": does not decode\n";
        pu_freeContext(&context);
        return;
    }
    const std::vector<DynOctetString> elements = fastStartOf(message);
    measure(message, "decode", [&] {
        PerContext own{};
        decode(own, message);
        for (const DynOctetString& element : elements) {
            decodeElement(element);
        }
        pu_freeContext(&own);
    });
    measure(message, "encode", [&] { encode(message); });
    pu_freeContext(&context);
}

} // namespace

int main() {
    for (const CorpusMessage& message : bench::readCorpus()) {
        measureMessage(message);
    }
    pu_drainBlockPool(&pool);
    return 0;
}
