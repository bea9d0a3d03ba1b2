// Lossless rewriting of messages that no encoder made: recorded ones with random damage. Whatever
// still decodes changes in the fields that were set and nowhere else.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "nat/listed/logical_channel.h"
#include "nat/listed/rewrite_mode.h"
#include "nat/q931.h"
#include "tests/support/calls.h"
#include "tests/support/decoded.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

constexpr unsigned seed = 323;
constexpr int mutationsPerMessage = 6000;

// A recorded message without its framing, and the way that it goes.
struct Source {
    std::string capture;
    size_t frame;
    friend void PrintTo(const Source& source, std::ostream* out) {
        *out << source.capture << " frame " << source.frame;
    }

    enum Way {
        ras,
        callerSetup,
        callerControl,
        remoteSetup,
        publishedConnect,
        publishedControl
    } way;
};

const Source sources[] = {
    {"gk-direct", 0, Source::ras},
    {"gk-direct", 2, Source::ras},
    {"fast-h245", 3, Source::callerSetup},
    {"h245", 25, Source::callerControl},
    {"in-h245", 3, Source::remoteSetup},
    {"in-h245", 7, Source::publishedConnect},
    {"in-h245", 25, Source::publishedControl},
    {"in-h245", 26, Source::publishedControl},
};

bool isQ931(Source::Way way) {
    return way == Source::callerSetup || way == Source::remoteSetup ||
           way == Source::publishedConnect;
}

Octets encodingOf(const Source& source) {
    for (const CapturedPacket& packet : readCapture(source.capture)) {
        if (packet.frame != source.frame) {
            continue;
        }
        Octets payload = packet.segment.payload;
        if (source.way == Source::remoteSetup) {
            // Recorded behind no NAT: its address is the published host's already.
            constexpr size_t destCallSignalAddress = 95;
            overwrite(payload, destCallSignalAddress, octetsOfAddress(MemoryHost::publicAddress));
        }
        if (source.way == Source::ras) {
            return payload;
        }
        OctetRange range = {4, payload.size() - 4};
        if (isQ931(source.way)) {
            Q931Walk walk = walkQ931(payload.data(), payload.size());
            nextUserInformation(walk, range);
        }
        const auto first = payload.begin() + static_cast<ptrdiff_t>(range.offset);
        return {first, first + static_cast<ptrdiff_t>(range.octets)};
    }
    throw std::out_of_range("no such frame");
}

class Mutator {
public:
    void mutate(Octets& octets) {
        for (int count = pick(4) + 1; count > 0 && !octets.empty(); --count) {
            const auto at = octets.begin() + pick(static_cast<int>(octets.size()));
            switch (pick(8)) {
            case 0:
                octets.erase(at);
                break;
            case 1:
                octets.insert(at, static_cast<uint8_t>(pick(256)));
                break;
            case 2:
                octets.erase(at, octets.end());
                break;
            case 3:
                *at = static_cast<uint8_t>(pick(256));
                break;
            default:
                *at = static_cast<uint8_t>(*at ^ 1 << pick(8));
            }
        }
    }

private:
    int pick(int below) { return static_cast<int>(generator_() % static_cast<unsigned>(below)); }

    std::mt19937 generator_{seed};
};

// ---- what of two decoded messages may differ ------------------------------------------------

using Fields = std::vector<EndpointField>;

template <typename Address> void addIf(Fields& fields, bool present, const Address& address) {
    EndpointField field;
    if (present && findEndpoint(address, field)) {
        fields.push_back(field);
    }
}

void addPair(Fields& fields, const MediaPairFields& pair) {
    if (pair.hasMedia) {
        fields.push_back(pair.media);
        if (pair.hasControl) {
            fields.push_back(pair.control);
        }
    }
}

Fields fieldsOf(const H245OpenLogicalChannel& channel) {
    Fields fields;
    EndpointField field;
    if (findForwardControl(channel, field)) {
        fields.push_back(field);
    }
    if (findSeparateStack(channel, field)) {
        fields.push_back(field);
    }
    addPair(fields, reverseMediaOf(channel));
    return fields;
}

Fields fieldsOf(const H245MultimediaSystemControlMessage& message) {
    if (const H245OpenLogicalChannel* channel = openLogicalChannelOf(message)) {
        return fieldsOf(*channel);
    }
    Fields fields;
    if (const H245OpenLogicalChannelAck* acknowledgement = openLogicalChannelAckOf(message)) {
        addPair(fields, acknowledgedMediaOf(*acknowledgement));
        EndpointField stack;
        if (findSeparateStack(*acknowledgement, stack)) {
            fields.push_back(stack);
        }
    }
    return fields;
}

Fields fieldsOf(const H225RasMessage& message) {
    Fields fields;
    if (message.alternative == H225RasMessage_gatekeeperRequestChosen) {
        addIf(fields, true, message.value.gatekeeperRequest->rasAddress);
    } else if (message.alternative == H225RasMessage_registrationRequestChosen) {
        for (const auto* list : {&message.value.registrationRequest->rasAddress,
                                 &message.value.registrationRequest->callSignalAddress}) {
            if (list->count > 0) {
                addIf(fields, true, list->elements[0]);
            }
        }
    }
    return fields;
}

Fields fieldsOf(const H225H323_UserInformation& message) {
    Fields fields;
    const auto& body = message.h323_uu_pdu.h323_message_body;
    if (body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen) {
        const H225Setup_UUIE& setup = *body.value.setup;
        addIf(fields, (setup.presence & H225Setup_UUIE_destCallSignalAddressPresent) != 0,
              setup.destCallSignalAddress);
    } else if (body.alternative == H225H323_UU_PDU_h323_message_body_connectChosen) {
        const H225Connect_UUIE& connect = *body.value.connect;
        addIf(fields, (connect.presence & H225Connect_UUIE_h245AddressPresent) != 0,
              connect.h245Address);
    }
    return fields;
}

template <typename Record, typename Encoder>
std::pair<int32_t, Octets> encoding(Encoder encode, const Record& record) {
    PerContext context = {};
    pu_initContext(&context, nullptr, 0, 1);
    const int32_t status = encode(&context, &record);
    uint32_t length = 0;
    const uint8_t* octets = pe_getMsgPtr(&context, &length);
    std::pair<int32_t, Octets> result{status, Octets(octets, octets + length)};
    pu_freeContext(&context);
    return result;
}

// Fails unless both octets decode alike but for the fields that a rule may set.
template <typename Record, typename Decoder, typename Encoder, typename Inner>
void expectSameBut(Decoder decode, Encoder encode, const uint8_t* before, const uint8_t* after,
                   size_t count, Inner inner) {
    const Decoded<Record> old(decode, before, count, true);
    const Decoded<Record> now(decode, after, count, true);
    ASSERT_EQ(old.valid, now.valid);
    if (!old.valid) {
        ASSERT_TRUE(std::equal(before, before + count, after));
        return;
    }
    const Fields from = fieldsOf(*now.record);
    const Fields to = fieldsOf(*old.record);
    ASSERT_EQ(from.size(), to.size());
    for (size_t i = 0; i < from.size(); ++i) {
        std::copy(from[i].ip, from[i].ip + 4, to[i].ip);
        *to[i].port = *from[i].port;
    }
    inner(*old.record, *now.record);
    const auto [oldStatus, oldEncoding] = encoding(encode, *old.record);
    const auto [nowStatus, nowEncoding] = encoding(encode, *now.record);
    ASSERT_EQ(oldStatus, nowStatus);
    if (oldStatus == PER_OK) {
        ASSERT_EQ(toHex(oldEncoding), toHex(nowEncoding));
    }
}

// The elements of a fast start, one by one; afterwards the old message has the new elements.
void expectSameElements(H225H323_UserInformation& old, H225H323_UserInformation& now) {
    const auto& body = old.h323_uu_pdu.h323_message_body;
    if (body.alternative != H225H323_UU_PDU_h323_message_body_setupChosen ||
        (body.value.setup->presence & H225Setup_UUIE_fastStartPresent) == 0) {
        return;
    }
    const auto& before = body.value.setup->fastStart;
    const auto& after = now.h323_uu_pdu.h323_message_body.value.setup->fastStart;
    ASSERT_EQ(before.count, after.count);
    for (uint32_t i = 0; i < before.count; ++i) {
        ASSERT_EQ(before.elements[i].numocts, after.elements[i].numocts);
        if (before.elements[i].numocts > 0) {
            expectSameBut<H245OpenLogicalChannel>(asn1PD_H245OpenLogicalChannel,
                                                  asn1PE_H245OpenLogicalChannel,
                                                  before.elements[i].data, after.elements[i].data,
                                                  before.elements[i].numocts, [](auto&, auto&) {});
        }
        before.elements[i] = after.elements[i];
    }
}

void expectSameFields(Source::Way way, const Octets& before, const Octets& after) {
    if (before.empty()) {
        return;
    }
    const auto nothing = [](auto&, auto&) {};
    if (way == Source::ras) {
        expectSameBut<H225RasMessage>(asn1PD_H225RasMessage, asn1PE_H225RasMessage, before.data(),
                                      after.data(), before.size(), nothing);
    } else if (isQ931(way)) {
        expectSameBut<H225H323_UserInformation>(asn1PD_H225H323_UserInformation,
                                                asn1PE_H225H323_UserInformation, before.data(),
                                                after.data(), before.size(), expectSameElements);
    } else {
        expectSameBut<H245MultimediaSystemControlMessage>(
            asn1PD_H245MultimediaSystemControlMessage, asn1PE_H245MultimediaSystemControlMessage,
            before.data(), after.data(), before.size(), nothing);
    }
}

// Every octet that differs is part of an address that this host or this call gives out: the public
// address with a mapped port behind it, or an address alone.
void expectAddressesOnly(const Octets& before, const Octets& after) {
    std::vector<bool> explained(before.size(), false);
    for (size_t at = 0; at + 4 <= after.size(); ++at) {
        const Octets octets(after.begin() + static_cast<ptrdiff_t>(at),
                            after.begin() + static_cast<ptrdiff_t>(at + 4));
        if (octets != octetsOfAddress(MemoryHost::publicAddress) &&
            octets != octetsOfAddress(privateParty)) {
            continue;
        }
        const size_t end = std::min(at + 6, after.size());
        std::fill(explained.begin() + static_cast<ptrdiff_t>(at),
                  explained.begin() + static_cast<ptrdiff_t>(end), true);
    }
    for (size_t i = 0; i < before.size(); ++i) {
        ASSERT_TRUE(before[i] == after[i] || explained[i]) << "octet " << i;
    }
}

// Both calls at once: each message goes the way of its source.
struct Calls {
    Calls() {
        setRewriteMode(REWRITE_LOSSLESS);
        outbound.announceControl();
        inbound.announceControl();
    }

    Octets deliver(Source::Way way, const Octets& encoding) {
        switch (way) {
        case Source::ras:
            return host.send({{privateParty, gatekeeper, 1719, 1719}, true, 0, 0, encoding})
                .payload;
        case Source::callerSetup:
            return outbound.fromCaller(q931({encoding})).payload;
        case Source::callerControl:
            return outbound.onControl(tpkt(encoding)).payload;
        case Source::remoteSetup:
            return inbound.fromRemote(q931({encoding})).payload;
        case Source::publishedConnect:
            return inbound.fromPublished(q931({encoding})).payload;
        default:
            // A mutated Connect may have moved the port.
            inbound.announceControl();
            return inbound.onControl(tpkt(encoding)).payload;
        }
    }

    MemoryHost host;
    OutboundCall outbound{host};
    InboundCall inbound{host};
};

class LosslessProperty : public testing::TestWithParam<Source> {};

TEST_P(LosslessProperty, ChangesSetFieldsOnly) {
    const Source& source = GetParam();
    const Octets original = encodingOf(source);
    Calls calls;
    Mutator mutator;
    int rewritten = 0;
    for (int i = 0; i < mutationsPerMessage && !HasFatalFailure(); ++i) {
        Octets mutated = original;
        mutator.mutate(mutated);
        const Octets payload = calls.deliver(source.way, mutated);
        ASSERT_GE(payload.size(), mutated.size());
        const Octets after(payload.end() - static_cast<ptrdiff_t>(mutated.size()), payload.end());
        rewritten += after != mutated ? 1 : 0;
        SCOPED_TRACE(toHex(mutated));
        expectAddressesOnly(mutated, after);
        expectSameFields(source.way, mutated, after);
    }
    // Most of the damage must leave a message to rewrite, or the test says nothing.
    EXPECT_GT(rewritten, mutationsPerMessage / 10);
}

INSTANTIATE_TEST_SUITE_P(, LosslessProperty, testing::ValuesIn(sources), [](const auto& info) {
    std::string name = info.param.capture + "_" + std::to_string(info.param.frame);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

} // namespace
