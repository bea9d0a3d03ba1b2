#pragma once

#include <cstdint>
#include <memory>

#include "gateway/capture_file.h"
#include "gateway/plain_capture/input_file.h"

namespace gateway::plain_capture {

// The frames of an open file of one format. Errors as those of InputFile.
class FrameSource {
public:
    FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;
    virtual ~FrameSource() = default;

    // Fills time, wireLength and octets; false at the end of the file.
    virtual bool next(CapturedFrame& frame) = 0;

    [[nodiscard]] int linkType() const { return linkType_; } // as in files; -1: not known yet
    [[nodiscard]] uint32_t snapshotLength() const { return snapshotLength_; } // 0: no limit
    [[nodiscard]] bool nanoseconds() const { return nanoseconds_; }

protected:
    // A frame's length, if it is one that a capture may have.
    static uint32_t checkedFrame(uint32_t length);

    int linkType_ = -1;
    uint32_t snapshotLength_ = 0;
    bool nanoseconds_ = true;
};

// Reads the start of the file up to the link type. `file` outlives the source.
std::unique_ptr<FrameSource> openFrames(InputFile& file);

// For openFrames, which has read the first 4 octets as `magic`, in this machine's byte order.
std::unique_ptr<FrameSource> openPcap(InputFile& file, uint32_t magic);
std::unique_ptr<FrameSource> openPcapng(InputFile& file);

} // namespace gateway::plain_capture
