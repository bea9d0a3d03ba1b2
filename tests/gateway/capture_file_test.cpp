// Capture files in both formats. The same cases hold for libpcap and for the reader of builds
// without it.
#include "gateway/capture_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/scratch_path.h"

namespace {

using gateway::CapturedFrame;
using gateway::CaptureReader;

// Octets of a capture in either byte order.
class FileText {
public:
    explicit FileText(bool bigEndian) : bigEndian_(bigEndian) {}

    FileText& put(size_t octets, std::initializer_list<uint64_t> numbers) {
        for (const uint64_t number : numbers) {
            for (size_t i = 0; i < octets; ++i) {
                const size_t place = bigEndian_ ? octets - 1 - i : i;
                text += static_cast<char>(number >> (8 * place) & 0xFF);
            }
        }
        return *this;
    }

    // A pcapng block around what `body` holds.
    FileText& block(uint32_t type, const FileText& body) {
        const uint64_t length = body.text.size() + 12;
        put(4, {type, length});
        text += body.text;
        return put(4, {length});
    }

    std::string text;

private:
    bool bigEndian_;
};

class CaptureFile : public testing::TestWithParam<bool> {
protected:
    ~CaptureFile() override {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }

    [[nodiscard]] FileText part() const { return FileText(GetParam()); }

    // A section with one Ethernet interface, its options as given.
    [[nodiscard]] FileText pcapng(const FileText& options) const {
        FileText file = part();
        file.block(0x0A0D0D0A, part().put(4, {0x1A2B3C4D}).put(2, {1, 0}).put(8, {~uint64_t{0}}));
        FileText interface = part().put(2, {1, 0}).put(4, {65535});
        interface.text += options.text;
        return file.block(1, interface);
    }

    // A packet of 6 octets, of which the last two of the block are padding.
    [[nodiscard]] FileText packet(uint64_t time) const {
        FileText body = part().put(4, {0, time >> 32, time & 0xFFFFFFFF, 6, 60});
        body.text += std::string("\x45ipv4!\0\0", 8);
        return body;
    }

    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

    // The frames of the file, then what stopped the reader, if not its end.
    std::vector<CapturedFrame> read(const std::string& text, std::string* error = nullptr) const {
        write(text);
        std::vector<CapturedFrame> frames;
        try {
            CaptureReader reader(path);
            CapturedFrame frame;
            while (reader.next(frame)) {
                frames.push_back(frame);
            }
        } catch (const gateway::CaptureError& failure) {
            EXPECT_NE(error, nullptr) << failure.what();
            if (error != nullptr) {
                *error = failure.what();
            }
        }
        return frames;
    }

    const std::string path = scratchPath("capture.pcap");
};

TEST_P(CaptureFile, TimesOfPcapngInEveryResolution) {
    struct Case {
        FileText options;
        uint64_t time;
        int64_t seconds;
        int32_t nanoseconds;
    };
    const auto resolution = [this](unsigned octet) {
        FileText options = part().put(2, {9, 1}).put(1, {octet, 0, 0, 0});
        return options.put(4, {0});
    };
    FileText offset = part().put(2, {9, 1}).put(1, {9, 0, 0, 0});
    offset.put(2, {14, 8}).put(8, {1'000'000'000});
    for (const Case& c :
         {Case{part(), 1'700'000'000'123'456, 1'700'000'000, 123'456'000},
          Case{resolution(9), 1'700'000'000'123'456'789, 1'700'000'000, 123'456'789},
          Case{resolution(3), 1'700'000'000'123, 1'700'000'000, 123'000'000},
          Case{resolution(0x80 + 10), (uint64_t{1'700'000'000} << 10) + 512, 1'700'000'000,
               500'000'000},
          Case{offset, 700'000'000'000'000'001, 1'700'000'000, 1}}) {
        FileText file = pcapng(c.options);
        // Blocks of other kinds are stepped over.
        file.block(5, part().put(4, {0, 0, 0})).block(6, packet(c.time));
        const auto frames = read(file.text);
        ASSERT_EQ(frames.size(), 1U) << c.time;
        EXPECT_EQ(frames[0].time.seconds, c.seconds);
        EXPECT_EQ(frames[0].time.nanoseconds, c.nanoseconds);
        EXPECT_EQ(frames[0].wireLength, 60U);
        EXPECT_EQ(std::string(frames[0].octets.begin(), frames[0].octets.end()), "\x45ipv4!");
    }
}

TEST_P(CaptureFile, PcapngPacketsWithoutTimeAndInLaterSections) {
    FileText file = pcapng(part());
    file.block(3, part().put(4, {3}).put(1, {0x45, 1, 2, 0}));
    file.text += pcapng(part()).block(6, packet(2'000'000)).text;
    const auto frames = read(file.text);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].octets, (std::vector<uint8_t>{0x45, 1, 2}));
    EXPECT_EQ(frames[1].number, 2U);
    EXPECT_EQ(frames[1].time.seconds, 2);
}

// Every cut of a file, and every octet of its framing damaged: frames before stay, nothing else
// is made up.
TEST_P(CaptureFile, CutAndDamagedFilesEndWithAnError) {
    FileText pcap = part().put(4, {0xA1B2C3D4}).put(2, {2, 4}).put(4, {0, 0, 65535, 101});
    FileText ng = pcapng(part());
    for (uint32_t i = 0; i < 2; ++i) {
        pcap.put(4, {i, 0, 4, 4}).put(1, {0x45, 0, 0, i});
        ng.block(6, packet(i));
    }
    for (const FileText& file : {pcap, ng}) {
        const auto whole = read(file.text);
        ASSERT_EQ(whole.size(), 2U);
        for (size_t length = 0; length < file.text.size(); ++length) {
            std::string error;
            const auto frames = read(file.text.substr(0, length), &error);
            EXPECT_LT(frames.size(), 2U) << length;
            EXPECT_TRUE(error.empty() || error.find(path) == 0) << error;
        }
        for (size_t at = 0; at < file.text.size(); ++at) {
            std::string damaged = file.text;
            damaged[at] = static_cast<char>(~damaged[at]);
            std::string error;
            EXPECT_LE(read(damaged, &error).size(), 2U) << at;
        }
    }
}

TEST_P(CaptureFile, WritesWhatItRead) {
    for (const uint32_t magic : {0xA1B2C3D4U, 0xA1B23C4DU}) {
        FileText file = part().put(4, {magic}).put(2, {2, 4}).put(4, {0, 0, 65535, 101});
        file.put(4, {1'700'000'000, 999'999, 3, 1500}).put(1, {0x45, 0x0A, 0x0D});
        write(file.text);
        const std::string copy = path + ".copy";
        {
            CaptureReader reader(path);
            gateway::CaptureWriter writer(copy, reader);
            CapturedFrame frame;
            while (reader.next(frame)) {
                writer.write(frame);
            }
            writer.finish();
        }
        std::ifstream written(copy, std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(written), {});
        const bool sameOrder = (std::endian::native == std::endian::big) == GetParam();
        EXPECT_EQ(text == file.text, sameOrder);
        EXPECT_EQ(text.size(), file.text.size());
        written.close();
        std::filesystem::remove(copy);
    }
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, CaptureFile, testing::Bool(),
                         [](const auto& order) { return order.param ? "big" : "little"; });

} // namespace
