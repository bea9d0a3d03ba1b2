// Codecs generated from a module that has nothing to do with H.323, against encodings of the same
// values by an independent encoder.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "FOREIGN-TYPES.h"
#include "type_tables.h"

namespace {

std::string encodedBy(const std::function<int32_t(PerContext*)>& encode) {
    PerContext ctx{};
    std::string hex;
    if (pu_initContext(&ctx, nullptr, 0, 1) == PER_OK) {
        const int32_t status = encode(&ctx);
        uint32_t length = 0;
        const uint8_t* octets = pe_getMsgPtr(&ctx, &length);
        hex = status == PER_OK ? "" : "status " + std::to_string(status);
        for (uint32_t i = 0; status == PER_OK && i < length; ++i) {
            char digits[3];
            (void)std::snprintf(digits, sizeof digits, "%02x", octets[i]);
            hex += digits;
        }
    }
    pu_freeContext(&ctx);
    return hex;
}

std::string decodedAndEncoded(const std::string& name, const std::string& hex) {
    std::vector<uint8_t> octets;
    for (size_t i = 0; i < hex.size(); i += 2) {
        octets.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    for (size_t i = 0; i < generatedTypeCount; ++i) {
        const TypeDescription& type = *generatedTypes[i];
        if (name == type.name) {
            std::vector<std::max_align_t> record(type.size / sizeof(std::max_align_t) + 1);
            PerContext ctx{};
            EXPECT_EQ(pu_initContext(&ctx, octets.data(), static_cast<uint32_t>(octets.size()), 1),
                      PER_OK);
            const int32_t status = type.decode(&ctx, record.data());
            std::string again =
                status == PER_OK
                    ? encodedBy([&](PerContext* out) { return type.encode(out, record.data()); })
                    : "status " + std::to_string(status);
            pu_freeContext(&ctx);
            return again;
        }
    }
    return "no type " + name;
}

struct Case {
    const char* type;
    const char* hex;
    std::function<int32_t(PerContext*)> encode;
};

template <typename Value>
std::function<int32_t(PerContext*)> with(int32_t (*encode)(PerContext*, Value), Value value) {
    return [=](PerContext* ctx) { return encode(ctx, value); };
}

ForeignLevel threeLevels[] = {-100, 0, 100};
ForeignTree leaf[] = {{0, {0, nullptr}}};
ForeignTree below[] = {{-1, {0, nullptr}}, {128, {1, leaf}}};

ForeignReading smallReading() {
    ForeignReading reading = {};
    reading.at = 4294967295;
    reading.flags = {3, {0xA0}};
    reading.default_ = 1;
    return reading;
}

ForeignReading fullReading() {
    ForeignReading reading = {};
    reading.presence = ForeignReading_colourPresent | ForeignReading_unitPresent |
                       ForeignReading_namePresent | ForeignReading_levelsPresent;
    reading.at = 77777;
    reading.colour = ForeignColour_redItem;
    reading.flags = {70, {0xC3, 0xC7, 0xCB, 0xCF, 0xD3, 0xD7, 0xDB, 0xDF, 0xE0}};
    reading.unit = ForeignReading_unit_secondItem;
    reading.name = "Ab";
    reading.levels = {3, threeLevels};
    return reading;
}

TEST(ForeignModule, CodesAsAnIndependentEncoderDoes) {
    ForeignReading small = smallReading();
    ForeignReading full = fullReading();
    ForeignTree tree = {1000, {2, below}};
    ForeignAnswer_both both = {small, {5, {0, nullptr}}};
    ForeignAnswer left = {ForeignAnswer_leftChosen, {.left = &small}};
    ForeignAnswer right = {ForeignAnswer_rightChosen, {.right = &tree}};
    ForeignAnswer third = {ForeignAnswer_bothChosen, {.both = &both}};
    const Case cases[] = {
        {"ForeignColour", "00", with(asn1PE_ForeignColour, ForeignColour_blueItem)},
        {"ForeignColour", "20", with(asn1PE_ForeignColour, ForeignColour_greenItem)},
        {"ForeignColour", "40", with(asn1PE_ForeignColour, ForeignColour_redItem)},
        {"ForeignColour", "80", with(asn1PE_ForeignColour, ForeignColour_whiteItem)},
        {"ForeignColour", "81", with(asn1PE_ForeignColour, ForeignColour_blackItem)},
        {"ForeignTrend", "80", with(asn1PE_ForeignTrend, ForeignTrend_risingItem)},
        {"ForeignLevel", "00", with(asn1PE_ForeignLevel, -100)},
        {"ForeignLevel", "7f", with(asn1PE_ForeignLevel, 27)},
        {"ForeignLevel", "c8", with(asn1PE_ForeignLevel, 100)},
        {"ForeignStep", "64", with(asn1PE_ForeignStep, 50)},
        {"ForeignStep", "800133", with(asn1PE_ForeignStep, 51)},
        {"ForeignStep", "8002fed4", with(asn1PE_ForeignStep, -300)},
        {"ForeignCode", "14142030", with(asn1PE_ForeignCode, "A\\B\"C")},
        {"ForeignDigits", "480123456789", with(asn1PE_ForeignDigits, "0123456789")},
        {"ForeignName", "067820287929", with(asn1PE_ForeignName, "x (y)")},
        {"ForeignLabel", "026162", with(asn1PE_ForeignLabel, "ab")},
        {"ForeignReading", "30ffffffff00b0",
         with<const ForeignReading*>(asn1PE_ForeignReading, &small)},
        {"ForeignReading", "e0012fd150c0c3c7cbcfd3d7dbdfe00b800140030041620500020064c8",
         with<const ForeignReading*>(asn1PE_ForeignReading, &full)},
        {"ForeignTree", "0203e88001ff0002008040010000",
         with<const ForeignTree*>(asn1PE_ForeignTree, &tree)},
        {"ForeignAnswer", "0cffffffff00b0",
         with<const ForeignAnswer*>(asn1PE_ForeignAnswer, &left)},
        {"ForeignAnswer", "400203e88001ff0002008040010000",
         with<const ForeignAnswer*>(asn1PE_ForeignAnswer, &right)},
        {"ForeignAnswer", "800a30ffffffff00b0010500",
         with<const ForeignAnswer*>(asn1PE_ForeignAnswer, &third)},
    };
    for (const Case& item : cases) {
        EXPECT_EQ(encodedBy(item.encode), item.hex) << item.type;
        EXPECT_EQ(decodedAndEncoded(item.type, item.hex), item.hex) << item.type;
    }
}

TEST(ForeignModule, RefusesWhatTheModuleDoes) {
    // A fourth item of two bits; an addition of a later version is kept as its number.
    EXPECT_EQ(decodedAndEncoded("ForeignTrend", "c0"), "status -23");
    EXPECT_EQ(decodedAndEncoded("ForeignColour", "60"), "status -23");
    EXPECT_EQ(decodedAndEncoded("ForeignColour", "83"), "83");
    EXPECT_EQ(encodedBy(with(asn1PE_ForeignTrend, uint32_t{3})), "status -23");
    EXPECT_EQ(encodedBy(with(asn1PE_ForeignLevel, 101)), "status -23");
    // The index of a single alternative takes no bits, and is checked all the same.
    for (const uint32_t alternative : {0U, 1U, 2U, UINT32_MAX}) {
        ForeignOnly only = {alternative, {1}};
        EXPECT_EQ(encodedBy(with<const ForeignOnly*>(asn1PE_ForeignOnly, &only)),
                  alternative == 1 ? "80" : "status -24");
    }
    ForeignOnlyYet none = {};
    EXPECT_EQ(encodedBy(with<const ForeignOnlyYet*>(asn1PE_ForeignOnlyYet, &none)), "status -24");
    EXPECT_EQ(encodedBy(with(asn1PE_ForeignCode, "D")), "status -17");
}

// Lists have no fragments: a count that needs them is refused, also when nothing would remain for
// a second one.
TEST(ForeignModule, RefusesListsThatNeedFragments) {
    std::vector<uint8_t> on(65536, 1);
    for (const uint32_t count : {16383U, 16384U, 16385U, 32768U, 49152U, 65535U, 65536U}) {
        const ForeignSwitches switches = {count, on.data()};
        const std::string any =
            encodedBy(with<const ForeignSwitches*>(asn1PE_ForeignSwitches, &switches));
        EXPECT_EQ(any == "status 2", count >= 16384) << count;
        const ForeignCountedSwitches bounded = {count, on.data()};
        const std::string counted =
            encodedBy(with<const ForeignCountedSwitches*>(asn1PE_ForeignCountedSwitches, &bounded));
        EXPECT_EQ(counted.size(), count > 65535 ? 10U : 4 + (count + 7) / 8 * 2) << count;
    }
}

} // namespace
