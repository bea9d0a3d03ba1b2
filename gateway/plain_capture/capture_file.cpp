// CaptureReader and CaptureWriter for builds that have no libpcap: 32-bit Linux and Windows.

#include "gateway/capture_file.h"

#include <algorithm>
#include <bit>
#include <filesystem>
#include <initializer_list>

#include "gateway/link_layer.h"
#include "gateway/plain_capture/formats.h"
#include "gateway/plain_capture/frame_source.h"

namespace gateway {

using namespace plain_capture;

struct CaptureReader::Source {
    explicit Source(std::FILE* opened) : file(opened) {}
    InputFile file;
    std::unique_ptr<FrameSource> frames;
};

CaptureReader::CaptureReader(const std::string& path) : path_(path) {
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        throw CaptureError(path + ": cannot be opened: " + systemError());
    }
    makeBinary(file);
    source_ = std::make_unique<Source>(file);
    try {
        source_->frames = openFrames(source_->file);
    } catch (const CaptureError& error) {
        throw CaptureError(path + ": not a pcap or pcapng capture: " + error.what());
    }
    if (!isSupportedLinkType(linkType())) {
        throw CaptureError(path + ": link type " + std::to_string(linkType()) +
                           " is not supported; use Ethernet, raw IP or Linux cooked");
    }
    std::error_code unknown;
    const uintmax_t size = std::filesystem::file_size(path, unknown);
    fileSize_ = unknown ? -1 : static_cast<int64_t>(size);
    nanoseconds_ = source_->frames->nanoseconds();
}

CaptureReader::~CaptureReader() = default;

bool CaptureReader::next(CapturedFrame& frame) {
    try {
        if (!source_->frames->next(frame)) {
            return false;
        }
    } catch (const CaptureError& error) {
        throw CaptureError(path_ + ": frame " + std::to_string(frames_ + 1) +
                           " cannot be read: " + error.what());
    }
    frame.number = ++frames_;
    if (frame.number == 1) {
        start_ = frame.time;
    }
    frame.captureStart = start_;
    return true;
}

int CaptureReader::linkType() const {
    const int type = source_->frames->linkType();
    return type == fileLinkTypeRaw ? linkTypeRaw : type;
}

int CaptureReader::snapshotLength() const {
    const uint32_t length = source_->frames->snapshotLength();
    return static_cast<int>(length == 0 ? maxFrame : std::min(length, maxFrame));
}

double CaptureReader::progress() const {
    const auto position = static_cast<double>(source_->file.position());
    return fileSize_ <= 0 ? -1.0 : position / static_cast<double>(fileSize_);
}

struct CaptureWriter::Sink {
    explicit Sink(std::FILE* opened) : file(opened) {}
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink() { closeFile(file); }

    bool put(const uint8_t* octets, size_t count) const {
        return std::fwrite(octets, 1, count, file) == count;
    }

    // pcap files stand in the byte order of the machine that writes them.
    [[nodiscard]] bool put(std::initializer_list<uint32_t> numbers) const {
        return put(reinterpret_cast<const uint8_t*>(numbers.begin()),
                   numbers.size() * sizeof(uint32_t));
    }

    std::FILE* file;
};

CaptureWriter::CaptureWriter(const std::string& path, const CaptureReader& like)
    : path_(path), nanoseconds_(like.hasNanoseconds()) {
    std::FILE* const file = path == "-" ? stdout : std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw CaptureError("cannot write the output: " + path + ": " + systemError());
    }
    makeBinary(file);
    sink_ = std::make_unique<Sink>(file);
    constexpr bool little = std::endian::native == std::endian::little;
    constexpr uint32_t version = little ? 0x00040002 : 0x00020004; // two halves: 2, 4
    const int linkType = like.linkType() == linkTypeRaw ? fileLinkTypeRaw : like.linkType();
    if (!sink_->put({nanoseconds_ ? pcapNanoseconds : pcapMicroseconds, version, 0, 0,
                     static_cast<uint32_t>(like.snapshotLength()),
                     static_cast<uint32_t>(linkType)})) {
        throw CaptureError("cannot write the output: " + path + ": " + systemError());
    }
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(const CapturedFrame& frame) {
    if (!sink_->put({static_cast<uint32_t>(frame.time.seconds),
                     static_cast<uint32_t>(frame.time.nanoseconds / (nanoseconds_ ? 1 : 1000)),
                     static_cast<uint32_t>(frame.octets.size()), frame.wireLength}) ||
        !sink_->put(frame.octets.data(), frame.octets.size())) {
        throw CaptureError(path_ + ": frame " + std::to_string(frame.number) +
                           " cannot be written: " + systemError());
    }
}

void CaptureWriter::finish() {
    if (std::fflush(sink_->file) != 0) {
        throw CaptureError(path_ + ": cannot be written to the end: " + systemError());
    }
}

} // namespace gateway
