// Lossless rewriting of every vector: its addresses are where the list says, and setting them
// changes nothing else.

#include <gtest/gtest.h>

#include "cli/lossless_check.h"
#include "tests/vectors/vector_set.h"

namespace {

class LosslessVectors : public testing::TestWithParam<const char*> {};

TEST_P(LosslessVectors, ChangeInTheirAddressesOnly) {
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        EXPECT_EQ(cli::losslessFaultOf(line), "") << "line " << line.number;
    }
}

INSTANTIATE_TEST_SUITE_P(, LosslessVectors,
                         testing::Values("later-versions.txt", "valid.txt", "kept.txt",
                                         "dropped.txt", "rejected.txt"),
                         [](const auto& info) {
                             const std::string name = info.param;
                             return name == "later-versions.txt" ? "later_versions"
                                                                 : name.substr(0, name.find('.'));
                         });

// A check that cannot fail would pass everything above.
TEST(LosslessCheck, NamesWhatIsWrong) {
    const auto fault = [](const std::string& third) {
        return cli::losslessFaultOf(
            {1,
             "H245MultimediaSystemControlMessage",
             {0x22, 0xc0, 0x00, 0x64, 0x02, 0x80, 0x13, 0x5c, 0x00, 0x00, 0x0a, 0x00, 0x00,
              0x05, 0x13, 0x88, 0x00, 0x0a, 0x00, 0x00, 0x05, 0x13, 0x89, 0x01, 0x01, 0x00},
             third});
    };
    const std::string media = "olcAck.mediaChannel.ip=10:4,olcAck.mediaChannel.port=14:2";
    const std::string control =
        "olcAck.mediaControlChannel.ip=17:4,olcAck.mediaControlChannel.port=21:2";
    EXPECT_EQ(fault(""), "");
    EXPECT_EQ(fault(media + "," + control), "");
    EXPECT_NE(fault(media), "");
    EXPECT_NE(fault(media + "," + control + ",olcAck.separateStack.ip=1:4"), "");
    EXPECT_NE(fault("olcAck.mediaChannel.ip=9:4,olcAck.mediaChannel.port=14:2," + control), "");
    EXPECT_THROW(fault("olcAck"), std::runtime_error);
}

} // namespace
