// Faults that parsers of H.323 and of PER have had elsewhere, each as the smallest message that
// shows it. Buffers have exactly the message's size, so that a sanitizer sees a read beyond.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>

#include "H.323/H323-MESSAGES.h"
#include "H.323/registry.h"
#include "fuzz/memory_meter.h"
#include "fuzz/value.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

// ---- messages through the codecs -------------------------------------------------------------

// A decoder over octets of exactly their size.
class Decoder {
public:
    explicit Decoder(const Octets& octets) : octets_(std::make_unique<uint8_t[]>(octets.size())) {
        std::copy(octets.begin(), octets.end(), octets_.get());
        EXPECT_EQ(pu_initContext(&context_, octets_.get(), static_cast<uint32_t>(octets.size()), 1),
                  PER_OK);
    }
    ~Decoder() { pu_freeContext(&context_); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    operator PerContext*() { return &context_; }

private:
    std::unique_ptr<uint8_t[]> octets_;
    PerContext context_{};
};

// A record in memory that was used before, as on a stack or in a heap.
template <typename Record> Record stale() {
    Record record;
    std::memset(static_cast<void*>(&record), 0xA5, sizeof record);
    return record;
}

template <typename Record>
int32_t encodeInto(int32_t (*encoder)(PerContext*, const Record*), const Record& record,
                   Octets& encoding) {
    PerContext context{};
    pu_initContext(&context, nullptr, 0, 1);
    const int32_t status = encoder(&context, &record);
    uint32_t length = 0;
    const uint8_t* octets = pe_getMsgPtr(&context, &length);
    encoding.assign(octets, octets + length);
    pu_freeContext(&context);
    return status;
}

// Bits front to back.
class Bits {
public:
    Bits& put(uint32_t value, unsigned count) {
        for (; count > 0; --count) {
            if (used_ % 8 == 0) {
                octets_.push_back(0);
            }
            octets_.back() |= static_cast<uint8_t>((value >> (count - 1) & 1) << (7 - used_ % 8));
            ++used_;
        }
        return *this;
    }
    Bits& align() {
        used_ = octets_.size() * 8;
        return *this;
    }
    Bits& octets(const Octets& more) {
        align();
        octets_.insert(octets_.end(), more.begin(), more.end());
        return align();
    }
    // Number of additions, bits of which the last alone is set, and its open type.
    Bits& additions(uint32_t count) {
        if (count <= 64) {
            put(0, 1).put(count - 1, 6);
        } else {
            put(1, 1).align().put(2, 8).put(count - 1, 16);
        }
        for (uint32_t i = 1; i < count; ++i) {
            put(0, 1);
        }
        return put(1, 1).octets({0x01, 0x5A});
    }
    [[nodiscard]] const Octets& get() const { return octets_; }

private:
    Octets octets_;
    size_t used_ = 0;
};

const Octets protocolIdentifier = fromHex("06 0008914a0002");

TEST(ExtensionBitmap, OfAnyWidthIsKeptByATypeWithoutAdditions) {
    for (uint32_t count = 1; count <= 300; ++count) {
        Bits bits;
        bits.put(1, 1).octets(Octets(16, 0x11)).additions(count).put(0x77, 8);
        Decoder decoder(bits.get());
        auto identifier = stale<H225CallIdentifier>();
        ASSERT_EQ(asn1PD_H225CallIdentifier(decoder, &identifier), PER_OK) << count;
        uint32_t behind = 0;
        EXPECT_EQ(pd_bits(decoder, &behind, 8), PER_OK);
        EXPECT_EQ(behind, 0x77U) << count;
        Octets encoding;
        EXPECT_EQ(encodeInto(asn1PE_H225CallIdentifier, identifier, encoding), PER_OK);
        EXPECT_EQ(encoding, Octets(bits.get().begin(), bits.get().end() - 1)) << count;
    }
}

TEST(ExtensionBitmap, OfAnyWidthIsSteppedOverByATypeWithAdditions) {
    for (uint32_t count = 2; count <= 300; ++count) {
        Bits bits;
        bits.put(0b10, 2).octets(protocolIdentifier).additions(count).put(0x77, 8);
        Decoder decoder(bits.get());
        auto release = stale<H225ReleaseComplete_UUIE>();
        ASSERT_EQ(asn1PD_H225ReleaseComplete_UUIE(decoder, &release), PER_OK) << count;
        EXPECT_EQ(release.presence, 0U);
        uint32_t behind = 0;
        EXPECT_EQ(pd_bits(decoder, &behind, 8), PER_OK);
        EXPECT_EQ(behind, 0x77U) << count;
    }
}

TEST(ExtensionBitmap, OfFourThousandMillionBitsFailsAtOnce) {
    const Octets octets = Bits()
                              .put(0b10, 2)
                              .octets(protocolIdentifier)
                              .put(1, 1)
                              .octets(fromHex("04 ffffffff ffff"))
                              .get();
    Decoder decoder(octets);
    H225ReleaseComplete_UUIE release;
    EXPECT_LT(asn1PD_H225ReleaseComplete_UUIE(decoder, &release), 0);
}

TEST(MandatoryAddition, ThatThePeerLeftOutIsNotTakenFromOldMemory) {
    // dataRatesSupported, an empty list, without the supportedPrefixes that belong to it.
    Decoder decoder(Bits().put(0b10, 2).put(1, 7).put(0b10, 2).octets({0x01, 0x00}).get());
    auto caps = stale<H225VoiceCaps>();
    ASSERT_EQ(asn1PD_H225VoiceCaps(decoder, &caps), PER_OK);
    Octets encoding;
    EXPECT_EQ(encodeInto(asn1PE_H225VoiceCaps, caps, encoding), PER_OK);
    EXPECT_EQ(encoding, Bits().put(0b10, 2).put(1, 7).put(0b11, 2).octets({1, 0, 1, 0}).get());

    // tokens, an empty list, without the callIdentifier: it cannot be encoded, and says so.
    Decoder second(Bits().put(0b10, 2).octets(protocolIdentifier).additions(2).get());
    auto release = stale<H225ReleaseComplete_UUIE>();
    ASSERT_EQ(asn1PD_H225ReleaseComplete_UUIE(second, &release), PER_OK);
    release.presence |= H225ReleaseComplete_UUIE_callIdentifierPresent;
    EXPECT_EQ(encodeInto(asn1PE_H225ReleaseComplete_UUIE, release, encoding), PER_CONSTRAINT);
}

TEST(OpenType, ShorterAndLongerThanItsContent) {
    const auto release = [](const Octets& openType) {
        return Bits()
            .put(0b10, 2)
            .octets(protocolIdentifier)
            .put(0, 7)
            .put(1, 1)
            .octets(openType)
            .put(0x77, 8)
            .get();
    };
    Octets guid(17, 0x11);
    guid[0] = 0x00;
    struct Case {
        size_t length;
        bool decodes;
    };
    for (const Case& one : {Case{0, false}, {1, false}, {16, false}, {17, true}, {30, true}}) {
        Octets openType = guid;
        openType.resize(one.length, 0xEE);
        openType.insert(openType.begin(), static_cast<uint8_t>(one.length));
        Decoder decoder(release(openType));
        H225ReleaseComplete_UUIE value;
        const int32_t status = asn1PD_H225ReleaseComplete_UUIE(decoder, &value);
        EXPECT_EQ(status == PER_OK, one.decodes) << one.length;
        uint32_t behind = 0;
        if (one.decodes) {
            EXPECT_EQ(pd_bits(decoder, &behind, 8), PER_OK);
            EXPECT_EQ(behind, 0x77U) << one.length;
        }
    }
}

TEST(Lengths, AreCheckedBeforeAnythingIsReadOrTaken) {
    // 16,383 octets, one fragment of 64 Ki, and fragments without end: announced, not there.
    for (const char* hex : {"bfff 01", "c4 01", "c1 c1 c1 c1", "80", "bf"}) {
        FailingAllocator meter;
        {
            Decoder decoder(fromHex(hex));
            DynOctetString string{};
            EXPECT_LT(pd_DynOctetString(decoder, &string), 0) << hex;
            Decoder again(fromHex(hex));
            uint32_t count = 0;
            std::array<uint8_t, 4> array{};
            EXPECT_LT(pd_OctetString(again, &count, array.data(), array.size()), 0) << hex;
        }
        EXPECT_EQ(meter.drainTakenOctets(), 0U) << hex;
    }
}

TEST(BoundedNumbers, WithCodesAboveTheirRangeStayInsideTheirMemory) {
    // SIZE (0..4): the three bits of the length say 7.
    std::array<uint8_t, 4> array{};
    uint32_t count = 0;
    Decoder octets(fromHex("ff ffffffffffffff"));
    EXPECT_EQ(pd_OctetStringSized(octets, &count, array.data(), array.size(), 0, 4),
              PER_DOES_NOT_FIT);
    Decoder bits(fromHex("ff ffffffffffffff"));
    EXPECT_EQ(pd_BitStringSized(bits, &count, array.data(), 0, 0, 4), PER_DOES_NOT_FIT);
}

TEST(ChoiceIndex, PastTheTableIsRefused) {
    // Seven root alternatives: the three bits of the index say 8.
    H225TransportAddress address;
    Decoder root(fromHex("70 00000000000000"));
    EXPECT_EQ(asn1PD_H225TransportAddress(root, &address), PER_BAD_CHOICE);
    // Two extension alternatives: the index says 3, and 2^32.
    for (const char* hex : {"82 0000", "c0 04 ffffffff 01 00"}) {
        H225H323_UU_PDU_h323_message_body body;
        Decoder extension(fromHex(hex));
        EXPECT_EQ(asn1PD_H225H323_UU_PDU_h323_message_body(extension, &body), PER_BAD_CHOICE);
    }
}

TEST(Lists, OfAnyTypeTakeNoMemoryForElementsThatAreNotThere) {
    for (size_t i = 0; i < registeredTypeCount(); ++i) {
        const TypeDescription& type = registeredType(i);
        if (type.kind != TypeKind::List) {
            continue;
        }
        for (const char* hex : {"ffff", "bfff 00", "bfff ffffffffffffffff"}) {
            FailingAllocator meter;
            const Octets octets = fromHex(hex);
            const auto value = std::make_unique<uint64_t[]>(type.size / sizeof(uint64_t) + 1);
            {
                Decoder decoder(octets);
                type.decode(decoder, value.get());
            }
            EXPECT_LE(meter.drainTakenOctets(),
                      fuzzing::memoryBound(octets.size(), fuzzing::memoryPerOctet(type)))
                << type.name;
        }
    }
}

// ---- packets through the hooks ---------------------------------------------------------------

class Packets : public testing::Test {
protected:
    static size_t activeCalls() { return FreshState::count(callSignalPool.activeList); }
    static size_t activeControls() { return FreshState::count(controlChannelPool.activeList); }

    MemoryHost host;
};

TEST_F(Packets, UserInformationOfLengthZeroEndsTheMessage) {
    const Octets element = fromHex("7e 0000 05");
    Octets message = fromHex("08 02 0001 05");
    message.insert(message.end(), element.begin(), element.end());
    OutboundCall out(host);
    EXPECT_FALSE(out.fromCaller(tpkt(message)).changed);
    EXPECT_FALSE(out.fromCalled(tpkt(message)).changed);
    InboundCall in(host);
    EXPECT_FALSE(in.fromRemote(tpkt(message)).changed);
    EXPECT_FALSE(in.fromPublished(tpkt(message)).changed);
    EXPECT_EQ(activeControls(), 0U);
}

TEST_F(Packets, CallStateIsNotMadeByStraySegments) {
    const FlowKey flow{outsideParty, MemoryHost::publicAddress, 1720, 50000};
    const Octets connect = q931({answer(Answer::connect, ipv4(outsideParty, 5000))});
    for (const unsigned flags : {0x00U, 0x02U, 0x04U, 0x10U, 0x11U, 0x14U, 0x18U}) {
        host.receive({flow, false, 1, static_cast<uint8_t>(flags), {}});
        host.receive({flow, false, 1, static_cast<uint8_t>(flags), connect});
    }
    // An answer that carries data is no answer to a call that is not known.
    host.receive({flow, false, 1, tcpSyn | tcpAck, connect});
    EXPECT_EQ(activeCalls(), 0U);
    EXPECT_EQ(activeControls(), 0U);
    EXPECT_TRUE(host.log.empty());
}

TEST_F(Packets, LengthsThatWrapRoundAreNotFollowed) {
    // IP total length below the header's: the transport length becomes 65,526 modulo 2^16.
    std::array<uint8_t, 20> ip{0x4F};
    const uint16_t total = 50;
    std::memcpy(ip.data() + 2, &total, sizeof total);
    ip[9] = 6;
    const auto exact = std::make_unique<uint8_t[]>(ip.size());
    std::copy(ip.begin(), ip.end(), exact.get());
    PacketDescriptor descriptor{};
    descriptor.ipHeader = exact.get();
    EXPECT_EQ(TarvexPacketOnReceiving(&host.context, &descriptor), 0U);
    EXPECT_EQ(descriptor.flags, 0U);

    // Sequence numbers half the number space away, and a TPKT length of 65,535.
    OutboundCall call(host);
    Octets message = fromHex("0300ffff 08020001");
    const FlowKey& flow = call.called.flow();
    for (const uint32_t sequence : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 0U, 1U}) {
        host.receive({flow, false, 0xFFFFFFF0 + sequence, tcpAck, message});
    }
    EXPECT_EQ(activeCalls(), 1U);
}

TEST_F(Packets, ASetupThatNamesAThirdHostTellsTheHostSo) {
    // The caller proposes media at an address that is not its own. The module opens nothing itself:
    // the host learns the address as it stands in the message, with the remote party unknown.
    const uint32_t third = address(10, 0, 0, 99);
    ChannelSpec channel;
    channel.reverse = true;
    channel.reverseMedia = ipv4(third, 4000);
    channel.reverseControl = ipv4(third, 4001);
    OutboundCall call(host);
    EXPECT_TRUE(
        call.fromCaller(q931({setup({.fastStart = {{fastStartElement(channel)}}})})).changed);
    EXPECT_EQ(host.takeLog("media"), std::vector<std::string>{"media 10.0.0.99:4000 > 1.1.1.1"});

    // The outside party's Setup cannot send the published host's call elsewhere.
    InboundCall in(host);
    const Delivered delivered =
        in.fromRemote(q931({setup({.destCallSignalAddress = ipv4(third, 1720)})}));
    EXPECT_TRUE(delivered.changed);
    const Octets expected = q931({setup({.destCallSignalAddress = ipv4(privateParty, 1720)})});
    EXPECT_EQ(delivered.payload, expected);
    EXPECT_TRUE(host.log.empty());
}

} // namespace
