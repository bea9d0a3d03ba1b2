#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace gateway {

// What is wrong with a capture file, worded for the user. Messages name the file.
class CaptureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Time since 1970-01-01 00:00:00 UTC.
struct CaptureTime {
    int64_t seconds = 0;
    int32_t nanoseconds = 0;
};

struct CapturedFrame {
    uint64_t number = 0; // from 1, as capture tools count
    CaptureTime time;
    CaptureTime captureStart; // time of the capture's first frame
    uint32_t wireLength = 0;  // the frame's length on the wire; `octets` may be fewer
    std::vector<uint8_t> octets;
};

// Reads a pcap or pcapng file frame by frame; holds one frame at a time.
class CaptureReader {
public:
    // "-" reads standard input. Throws CaptureError when the file cannot be opened, is no capture,
    // or has a link type that networkLayer does not know.
    explicit CaptureReader(const std::string& path);
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;
    ~CaptureReader();

    // The next frame into `frame`, whose buffer is used again; false at the end of the file.
    // Throws CaptureError with the frame's number when the file is damaged or ends inside a frame.
    bool next(CapturedFrame& frame);

    [[nodiscard]] int linkType() const;
    [[nodiscard]] int snapshotLength() const;
    [[nodiscard]] bool hasNanoseconds() const { return nanoseconds_; }

    // Part of the file that was read, 0 to 1; negative when the size is not known.
    [[nodiscard]] double progress() const;

private:
    struct Source; // of libpcap, or of plain_capture/

    std::string path_;
    std::unique_ptr<Source> source_;
    uint64_t frames_ = 0;
    CaptureTime start_;
    int64_t fileSize_ = -1;
    bool nanoseconds_ = false;
};

// Writes a pcap file of the reader's link type, snapshot length and time resolution (nanoseconds
// for pcapng).
class CaptureWriter {
public:
    // "-" writes standard output. Throws CaptureError when the file cannot be made.
    CaptureWriter(const std::string& path, const CaptureReader& like);
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;
    ~CaptureWriter();

    // Throws CaptureError when the frame cannot be written.
    void write(const CapturedFrame& frame);

    // Brings everything to the file. Throws CaptureError when that fails, so call it before the
    // destructor, which cannot tell.
    void finish();

private:
    struct Sink;

    std::string path_;
    std::unique_ptr<Sink> sink_;
    bool nanoseconds_ = false;
};

} // namespace gateway
