// The locator on messages that are cut or changed, each on memory of exactly its size: whatever
// they hold, nothing is read or told outside them and the answer stays the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "cli/located_addresses.h"
#include "locator/path_names.h"
#include "tests/vectors/vector_set.h"

namespace {

// Everything that nextPlace says of one place, in an order that can be compared.
std::vector<uint64_t> fieldsOf(const LocatedPlace& place) {
    return {static_cast<uint64_t>(place.kind),
            place.field,
            place.alternative,
            place.port,
            place.address,
            place.value,
            place.offset,
            place.length,
            place.characterBits,
            place.path};
}

std::vector<std::vector<uint64_t>> walk(LocatedType type, const uint8_t* octets, size_t count,
                                        LocateStatus& status) {
    LocatorWalk walk;
    std::memset(&walk, 0xA5, sizeof walk); // starting sets all that is read
    LocatedPlace place{};
    std::vector<std::vector<uint64_t>> places;
    startLocating(walk, type, octets, count);
    while (nextPlace(walk, place)) {
        EXPECT_LE(place.offset, count);
        EXPECT_LE(place.length, count - place.offset);
        EXPECT_TRUE(places.empty() || places.back()[6] <= place.offset);
        uint32_t indexes[4];
        EXPECT_LE(placeIndexes(walk, indexes, 4), locatorDepth);
        char path[64];
        EXPECT_LT(placePath(walk, path, sizeof path), sizeof path);
        if (place.kind == PlaceKind::alias) {
            char text[16];
            aliasCharacters(octets, place, text, sizeof text);
        }
        places.push_back(fieldsOf(place));
    }
    EXPECT_FALSE(nextPlace(walk, place)); // the end stays the end
    EXPECT_LE(places.size(), count * 8 + 1);
    status = walk.status;
    return places;
}

void check(LocatedType type, const uint8_t* octets, size_t count) {
    LocateStatus first = LocateStatus::more;
    LocateStatus second = LocateStatus::more;
    const auto places = walk(type, octets, count, first);
    EXPECT_EQ(walk(type, octets, count, second), places);
    EXPECT_EQ(first, second);
    EXPECT_NE(first, LocateStatus::more);
}

std::unique_ptr<uint8_t[]> exactCopy(const std::vector<uint8_t>& from, size_t octets) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[octets]);
    std::copy_n(from.begin(), octets, copy.get());
    return copy;
}

// H323NAT_EVERY_FLIP in the environment asks for all of them, which takes minutes.
bool wantsAll() {
    return std::getenv("H323NAT_EVERY_FLIP") != nullptr;
}

class WrongMessages : public testing::TestWithParam<const char*> {};

TEST_P(WrongMessages, CutAndFlipped) {
    constexpr size_t longest = 400;
    const size_t cutStep = wantsAll() ? 1 : 13;
    const size_t flipStep = wantsAll() ? 1 : 61;
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        const auto type = cli::locatedTypeNamed(line.type);
        const size_t size = line.encoding.size();
        if (!type || size > longest) {
            continue;
        }
        SCOPED_TRACE(line.number);
        for (size_t cut = line.number % cutStep; cut < size; cut += cutStep) {
            check(*type, exactCopy(line.encoding, cut).get(), cut);
        }
        const auto octets = exactCopy(line.encoding, size);
        for (size_t bit = line.number % flipStep; bit < size * 8; bit += flipStep) {
            const auto flip = static_cast<uint8_t>(1U << bit % 8);
            octets[bit / 8] ^= flip;
            check(*type, octets.get(), size);
            octets[bit / 8] ^= flip;
        }
        if (HasFatalFailure() || HasNonfatalFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, WrongMessages,
                         testing::Values("addresses.txt", "addresses-captured.txt",
                                         "later-versions.txt", "valid.txt", "known.txt", "kept.txt",
                                         "dropped.txt", "rejected.txt", "signal.txt", "values.txt"),
                         [](const auto& info) {
                             std::string name = info.param;
                             name.resize(name.find('.'));
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

// Lists of elements that cost a bit, nesting without end, lengths that lead nowhere.
TEST(WrongMessages, OfOneOctetAllOver) {
    constexpr size_t longest = 65535;
    for (unsigned octet = 0; octet < 256; ++octet) {
        const std::vector<uint8_t> octets(longest, static_cast<uint8_t>(octet));
        for (const LocatedType type :
             {LocatedType::userInformation, LocatedType::rasMessage,
              LocatedType::systemControlMessage, LocatedType::openLogicalChannel}) {
            check(type, octets.data(), octets.size());
        }
    }
}

TEST(WrongMessages, OfNoOctets) {
    LocateStatus status = LocateStatus::more;
    EXPECT_TRUE(walk(LocatedType::rasMessage, nullptr, 0, status).empty());
    EXPECT_EQ(status, LocateStatus::malformed);
}

} // namespace
