// Every encoding of the vector files through decoder and encoder: whole, cut short, in place, and
// with memory running out.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "cli/hex.h"
#include "tests/support/failing_allocator.h"
#include "tests/vectors/vector_set.h"
#include "tree/value_text.h"

namespace {

using Octets = std::vector<uint8_t>;

const TypeDescription& typeOf(const cli::VectorLine& line) {
    const TypeDescription* type = findType(line.type);
    if (type == nullptr) {
        throw std::runtime_error("no type " + line.type);
    }
    return *type;
}

std::string where(const std::string& file, const cli::VectorLine& line) {
    return file + ":" + std::to_string(line.number) + " " + line.type;
}

// Memory of exactly `octets` octets, so that a sanitizer sees the first one read behind it.
std::unique_ptr<uint8_t[]> exactCopy(const Octets& from, size_t octets) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[octets]);
    if (octets > 0) {
        std::memcpy(copy.get(), from.data(), octets);
    }
    return copy;
}

class EncodedAgain : public testing::TestWithParam<const char*> {};

TEST_P(EncodedAgain, GivesTheExpectedOctets) {
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        const Octets expected = line.third.empty() ? line.encoding : cli::fromHex(line.third);
        MessageValue value(typeOf(line));
        ASSERT_EQ(value.decode(line.encoding), PER_OK) << where(GetParam(), line);
        EXPECT_EQ(value.consumed(), line.encoding.size()) << where(GetParam(), line);
        Octets encoding;
        ASSERT_EQ(value.encode(&encoding), PER_OK) << where(GetParam(), line);
        ASSERT_EQ(tree::hexText(encoding), tree::hexText(expected)) << where(GetParam(), line);
    }
}

// As the module does it: the new encoding goes over the octets that the value came from.
TEST_P(EncodedAgain, InPlaceGivesTheExpectedOctets) {
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        const Octets expected = line.third.empty() ? line.encoding : cli::fromHex(line.third);
        const size_t size = line.encoding.size();
        const auto place = exactCopy(line.encoding, size);
        MessageValue value(typeOf(line));
        ASSERT_EQ(value.decode({place.get(), size}), PER_OK);
        size_t length = 0;
        ASSERT_EQ(value.encodeInto({place.get(), size}, &length), PER_OK)
            << where(GetParam(), line);
        ASSERT_EQ(tree::hexText({place.get(), length}), tree::hexText(expected))
            << where(GetParam(), line);
    }
}

// A message cut short is refused, or is a whole message of another kind in fewer octets; in no case
// is anything read behind its end.
TEST_P(EncodedAgain, CutShortFailsCleanly) {
    constexpr size_t mostCuts = 160;
    size_t refused = 0;
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        const size_t size = line.encoding.size();
        // Long messages are cut at places that differ from line to line.
        const size_t step = size / mostCuts + 1;
        for (size_t cut = line.number % step; cut < size; cut += step) {
            const auto part = exactCopy(line.encoding, cut);
            MessageValue value(typeOf(line));
            const int32_t status = value.decode({part.get(), cut});
            ASSERT_LE(status, 0) << where(GetParam(), line) << " cut to " << cut;
            if (status == PER_OK) {
                ASSERT_LE(value.consumed(), cut) << where(GetParam(), line) << " cut to " << cut;
            }
            refused += status < 0 ? 1 : 0;
        }
    }
    EXPECT_GT(refused, 0U);
}

INSTANTIATE_TEST_SUITE_P(Files, EncodedAgain,
                         testing::Values("valid.txt", "known.txt", "kept.txt", "dropped.txt",
                                         "signal.txt"),
                         [](const auto& info) {
                             const std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });

TEST(Rejected, UnknownAlternativeBesideKnownExtensions) {
    for (const cli::VectorLine& line : readVectors("rejected.txt")) {
        MessageValue strict(typeOf(line));
        EXPECT_EQ(strict.decode(line.encoding), PER_BAD_CHOICE) << where("rejected.txt", line);
    }
}

TEST(Rejected, LenientDecoderStepsOverIt) {
    for (const cli::VectorLine& line : readVectors("rejected.txt")) {
        MessageValue lenient(typeOf(line));
        ASSERT_EQ(pu_initContext(lenient.context(), line.encoding.data(),
                                 static_cast<uint32_t>(line.encoding.size()), 1),
                  PER_OK);
        pu_setLenient(lenient.context(), 1);
        EXPECT_EQ(lenient.decode(line.encoding), PER_OK) << where("rejected.txt", line);
        EXPECT_EQ(lenient.consumed(), line.encoding.size()) << where("rejected.txt", line);
    }
}

TEST(ScarceMemory, IsReportedAndNothingLeaks) {
    size_t refused = 0;
    for (const cli::VectorLine& line : readVectors("valid.txt")) {
        if (line.number % 7 != 0) {
            continue;
        }
        int32_t status = PER_NO_MEMORY;
        for (size_t enough = 0; status == PER_NO_MEMORY; ++enough) {
            const FailingAllocator allocator(enough);
            {
                MessageValue value(typeOf(line));
                Octets encoding;
                status = value.decode(line.encoding);
                if (status == PER_OK) {
                    status = value.encode(&encoding);
                }
                refused += status == PER_NO_MEMORY ? 1 : 0;
            }
            ASSERT_EQ(allocator.liveBlocks(), 0U) << where("valid.txt", line) << " with " << enough;
            ASSERT_LT(enough, 100000U);
        }
        ASSERT_EQ(status, PER_OK) << where("valid.txt", line);
    }
    EXPECT_GT(refused, 0U);
}

} // namespace
