#include "gateway/plain_capture/frame_source.h"

#include <array>

#include "gateway/plain_capture/formats.h"

namespace gateway::plain_capture {
namespace {

constexpr uint32_t linkTypeMask = 0x03FFFFFF; // the bits above it tell of frame check sequences

class PcapSource : public FrameSource {
public:
    PcapSource(InputFile& file, bool nanoseconds) : file_(file) {
        nanoseconds_ = nanoseconds;
        std::array<uint8_t, 20> header{}; // what follows the first number
        file_.readAll(header.data(), header.size());
        snapshotLength_ = file_.number32(&header[12]);
        linkType_ = static_cast<int>(file_.number32(&header[16]) & linkTypeMask);
    }

    bool next(CapturedFrame& frame) override {
        std::array<uint8_t, 16> header{};
        if (!file_.read(header.data(), header.size())) {
            return false;
        }
        const uint32_t unit = nanoseconds_ ? 1 : 1000;
        const uint32_t fraction = file_.number32(&header[4]);
        if (fraction >= nanosecondsPerSecond / unit) {
            throw CaptureError("the fraction of its time is more than a second");
        }
        frame.time = {file_.number32(header.data()), static_cast<int32_t>(fraction * unit)};
        frame.wireLength = file_.number32(&header[12]);
        frame.octets.resize(checkedFrame(file_.number32(&header[8])));
        file_.readAll(frame.octets.data(), frame.octets.size());
        return true;
    }

private:
    InputFile& file_;
};

} // namespace

uint32_t FrameSource::checkedFrame(uint32_t length) {
    if (length > maxFrame) {
        throw CaptureError("its length is " + std::to_string(length) + " octets, above " +
                           std::to_string(maxFrame));
    }
    return length;
}

std::unique_ptr<FrameSource> openPcap(InputFile& file, uint32_t magic) {
    if (magic != pcapMicroseconds && magic != pcapNanoseconds) {
        magic = swapped(magic);
        file.setSwapped(true);
    }
    if (magic != pcapMicroseconds && magic != pcapNanoseconds) {
        throw CaptureError("its first octets are those of neither format");
    }
    return std::make_unique<PcapSource>(file, magic == pcapNanoseconds);
}

std::unique_ptr<FrameSource> openFrames(InputFile& file) {
    std::array<uint8_t, 4> octets{};
    if (!file.read(octets.data(), octets.size())) {
        throw CaptureError("the file is empty");
    }
    const uint32_t magic = file.number32(octets.data());
    return magic == pcapngSection ? openPcapng(file) : openPcap(file, magic);
}

} // namespace gateway::plain_capture
