// Random sequences of primitives: what was written reads back, the cursors agree, exact and fast
// ways agree, and no truncation yields octets that it does not have.
#include <cstring>
#include <gtest/gtest.h>
#include <random>

#include "tests/asn1per/support.h"

namespace {

using Random = std::mt19937;

struct Item {
    int kind;
    uint32_t value;
    uint32_t lower;
    uint32_t upper;
    Octets octets;
};

constexpr int KINDS = 13;

uint32_t draw(Random& random, uint32_t limit) {
    return std::uniform_int_distribution<uint32_t>(0, limit)(random);
}

// Any magnitude is as likely as any other.
uint32_t drawMagnitude(Random& random) {
    return static_cast<uint32_t>(random()) >> draw(random, 31);
}

uint32_t drawLength(Random& random) {
    const uint32_t kind = draw(random, 499);
    return kind == 0   ? 16380 + draw(random, 20000)
           : kind < 25 ? draw(random, 300)
                       : draw(random, 12);
}

Item drawItem(Random& random) {
    Item item = {static_cast<int>(draw(random, KINDS - 1)), drawMagnitude(random), 0, 0, {}};
    item.lower = draw(random, 3) == 0 ? drawMagnitude(random) >> 8 : draw(random, 3);
    if (item.kind <= 4) {
        const uint32_t range = drawMagnitude(random);
        item.upper = range > UINT32_MAX - item.lower ? UINT32_MAX : item.lower + range;
        item.value = item.lower + (item.upper - item.lower == UINT32_MAX
                                       ? drawMagnitude(random)
                                       : draw(random, item.upper - item.lower));
        return item;
    }
    item.octets.resize(drawLength(random));
    for (uint8_t& octet : item.octets) {
        octet = static_cast<uint8_t>(1 + draw(random, 126));
    }
    const auto length = static_cast<uint32_t>(item.octets.size());
    item.lower = draw(random, 1) == 0 ? length : draw(random, length);
    item.upper = item.lower == length && draw(random, 1) == 0 ? length : length + draw(random, 300);
    return item;
}

uint32_t bitsOf(const Item& item) {
    return 1 + item.lower % 32;
}
uint32_t low(uint32_t value, uint32_t bits) {
    return value & (UINT32_MAX >> (32 - bits));
}

int32_t write(PerContext* ctx, const Item& item) {
    const auto length = static_cast<uint32_t>(item.octets.size());
    const std::string text(item.octets.begin(), item.octets.end());
    switch (item.kind) {
    case 0:
        return pe_bits(ctx, item.value, bitsOf(item));
    case 1:
        return pe_ConsUnsigned(ctx, item.value, item.lower, item.upper);
    case 2:
        return pe_UnconsInteger(ctx, static_cast<int32_t>(item.value));
    case 3:
        return pe_SmallNonNegWholeNumber(ctx, item.value);
    case 4:
        return pe_bitRun(ctx, item.value, bitsOf(item));
    case 5:
        return pe_OctetString(ctx, length, item.octets.data());
    case 6:
        return pe_OpenType(ctx, length, item.octets.data());
    case 7:
        return pe_OctetStringSized(ctx, length, item.octets.data(), item.lower, item.upper);
    case 8:
        return pe_BitString(ctx, length * 8 - length % 8, item.octets.data());
    case 9:
        return pe_IA5String(ctx, length < 16384 ? text.c_str() : "", nullptr);
    case 10:
        return pe_bit(ctx, item.value & 1);
    case 11:
        return pe_byteAlign(ctx);
    default:
        return pe_LengthSized(ctx, length, item.lower, item.upper) < 0 ? PER_CONSTRAINT : 0;
    }
}

bool sameOctets(const Item& item, const uint8_t* data, uint32_t count) {
    return count == item.octets.size() &&
           (count == 0 || std::memcmp(data, item.octets.data(), count) == 0);
}

// Reads an item; `same` tells whether it is the one that was written.
int32_t read(PerContext* ctx, const Item& item, bool* same) {
    uint32_t number = 0;
    int32_t signedNumber = 0;
    uint8_t bit = 0;
    DynOctetString octets = {};
    DynBitString bits = {};
    const char* text = "";
    const auto length = static_cast<uint32_t>(item.octets.size());
    Octets room(length + 1);
    int32_t status = 0;
    switch (item.kind) {
    case 0:
        status = pd_bits(ctx, &number, bitsOf(item));
        *same = number == low(item.value, bitsOf(item));
        return status;
    case 1:
        status = pd_ConsUnsigned(ctx, &number, item.lower, item.upper);
        *same = number == item.value;
        return status;
    case 2:
        status = pd_UnconsInteger(ctx, &signedNumber);
        *same = signedNumber == static_cast<int32_t>(item.value);
        return status;
    case 3:
        status = pd_SmallNonNegWholeNumber(ctx, &number);
        *same = number == item.value;
        return status;
    case 4:
        status = pd_bitRun(ctx, &number, bitsOf(item));
        *same = number == low(item.value, bitsOf(item));
        return status;
    case 5:
        status = pd_DynOctetString(ctx, &octets);
        *same = sameOctets(item, octets.data, octets.numocts);
        return status;
    case 6: // nothing is written as one zero octet
        status = pd_OpenType(ctx, &octets.data, &octets.numocts);
        *same = length == 0 ? octets.numocts == 1 && octets.data != nullptr && octets.data[0] == 0
                            : sameOctets(item, octets.data, octets.numocts);
        return status;
    case 7:
        status = pd_OctetStringSized(ctx, &number, room.data(), length, item.lower, item.upper);
        *same = sameOctets(item, room.data(), number);
        return status;
    case 8:
        status = pd_DynBitString(ctx, &bits);
        *same = status == 0 && bits.numbits == length * 8 - length % 8 &&
                (length == 0 || std::memcmp(bits.data, item.octets.data(), bits.numbits / 8) == 0);
        return status;
    case 9:
        status = pd_IA5String(ctx, &text, nullptr);
        *same =
            std::string(text) ==
            (length < 16384 ? std::string(item.octets.begin(), item.octets.end()) : std::string());
        return status;
    case 10:
        status = pd_bit(ctx, &bit);
        *same = bit == (item.value & 1);
        return status;
    case 11:
        *same = true;
        return pd_byteAlign(ctx);
    default:
        status = pd_LengthSized(ctx, &number, item.lower, item.upper);
        *same = number == (status == PER_FRAGMENT ? length / 16384 * 16384 : length);
        return status == PER_FRAGMENT ? 0 : status;
    }
}

// Tracking sends every primitive down its exact way.
Octets encode(const std::vector<Item>& items, uint8_t aligned, uint8_t tracking) {
    Octets room(65536, 0xFF);
    Writer out(&room, aligned);
    pu_setFieldTracking(&out, tracking);
    for (const Item& item : items) {
        EXPECT_EQ(write(&out, item), 0) << "kind " << item.kind;
    }
    EXPECT_EQ(pe_bits(&out, 0x80, 8), 0); // so that a last alignment has an octet to stand on
    return out.octets();
}

// Index of the first item that failed, or the number of items.
size_t decode(PerContext* ctx, const std::vector<Item>& items, int32_t* status) {
    for (size_t i = 0; i < items.size(); ++i) {
        bool same = false;
        *status = read(ctx, items[i], &same);
        if (*status != 0) {
            return i;
        }
        EXPECT_TRUE(same) << "kind " << items[i].kind;
    }
    return items.size();
}

void checkSequence(Random& random, uint8_t aligned) {
    std::vector<Item> items;
    size_t octets = 0;
    for (uint32_t count = 1 + draw(random, 9); count > 0 && octets < 50000; --count) {
        items.push_back(drawItem(random));
        octets += items.back().octets.size();
    }
    const Octets encoded = encode(items, aligned, 0);
    ASSERT_EQ(encode(items, aligned, 1), encoded);

    int32_t status = 0;
    Reader in(encoded, aligned);
    ASSERT_EQ(decode(&in, items, &status), items.size()) << status;
    const uint64_t end = pu_bitPosition(&in);
    ASSERT_LE(end, encoded.size() * 8);
    ASSERT_EQ((end + 8 + 7) / 8, encoded.size());

    const auto kept = draw(random, static_cast<uint32_t>(encoded.size()) - 1);
    Reader cut(Octets(encoded.begin(), encoded.begin() + kept), aligned);
    const size_t reached = decode(&cut, items, &status);
    Reader cutExact(Octets(encoded.begin(), encoded.begin() + kept), aligned);
    pu_setFieldTracking(&cutExact, 1);
    int32_t exactStatus = 0;
    ASSERT_EQ(decode(&cutExact, items, &exactStatus), reached);
    ASSERT_EQ(exactStatus, status);
    if (reached == items.size()) {
        ASSERT_GE(uint64_t{kept} * 8, end);
    } else {
        ASSERT_TRUE(status == PER_OVERFLOW || status == PER_END_OF_DATA) << status;
    }
}

TEST(Property, SequencesReadBackAndTruncationsFail) {
    Random random(20240817);
    for (int i = 0; i < 20000 && !testing::Test::HasFailure(); ++i) {
        checkSequence(random, i % 2 == 0 ? 1 : 0);
    }
}

} // namespace
