#include "gateway/capture_file.h"

#include "gateway/link_layer.h"

#include <pcap/pcap.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

namespace gateway {
namespace {

// pcap files with nanoseconds, in either byte order; pcapng files may hold any resolution.
constexpr std::array<std::array<uint8_t, 4>, 3> nanosecondMagics = {{
    {0xA1, 0xB2, 0x3C, 0x4D},
    {0x4D, 0x3C, 0xB2, 0xA1},
    {0x0A, 0x0D, 0x0D, 0x0A},
}};

std::string systemError() {
    return std::strerror(errno);
}

// Looks at the first octets and leaves them to be read again.
bool startsWithNanoseconds(std::FILE* file) {
    std::array<uint8_t, 4> magic{};
    const int first = std::fgetc(file);
    if (first == EOF) {
        return false;
    }
    if (std::ungetc(first, file) == EOF) {
        return false;
    }
    // One octet can be pushed back for sure; the rest needs a file that can be rewound.
    if (std::ftell(file) != 0) {
        return true;
    }
    const size_t count = std::fread(magic.data(), 1, magic.size(), file);
    std::rewind(file);
    if (count != magic.size()) {
        return false;
    }
    for (const auto& known : nanosecondMagics) {
        if (magic == known) {
            return true;
        }
    }
    return false;
}

// A buffer for a file's octets, in place of the C library's of 4096: fewer calls of the system. It
// must outlive the file, so the standard streams keep their own.
class FileBuffer {
public:
    void giveTo(std::FILE* file) {
        constexpr size_t octets = size_t{256} * 1024;
        buffer_ = std::make_unique<char[]>(octets);
        static_cast<void>(std::setvbuf(file, buffer_.get(), _IOFBF, octets));
    }

private:
    std::unique_ptr<char[]> buffer_;
};

int64_t sizeOf(std::FILE* file) {
    struct stat status {};
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) {
        return -1;
    }
    return status.st_size;
}

// "EN10MB (Ethernet)" and the like.
std::string linkTypeName(int linkType) {
    const char* const name = pcap_datalink_val_to_name(linkType);
    const char* const description = pcap_datalink_val_to_description(linkType);
    if (name == nullptr || description == nullptr) {
        return std::to_string(linkType);
    }
    return std::string(name) + " (" + description + ")";
}

} // namespace

struct CaptureReader::Source {
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() {
        if (handle != nullptr) {
            pcap_close(handle);
        }
    }

    FileBuffer buffer; // goes after the handle, which closes the file
    pcap_t* handle = nullptr;
};

CaptureReader::CaptureReader(const std::string& path) : path_(path) {
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        throw CaptureError(path + ": cannot be opened: " + systemError());
    }
    source_ = std::make_unique<Source>();
    if (file != stdin) {
        source_->buffer.giveTo(file);
    }
    fileSize_ = sizeOf(file);
    nanoseconds_ = startsWithNanoseconds(file);
    std::array<char, PCAP_ERRBUF_SIZE> message{};
    source_->handle = pcap_fopen_offline_with_tstamp_precision(
        file, nanoseconds_ ? PCAP_TSTAMP_PRECISION_NANO : PCAP_TSTAMP_PRECISION_MICRO,
        message.data());
    if (source_->handle == nullptr) {
        if (file != stdin) {
            static_cast<void>(std::fclose(file));
        }
        throw CaptureError(path + ": not a pcap or pcapng capture: " + message.data());
    }
    if (!isSupportedLinkType(linkType())) {
        const std::string name = linkTypeName(linkType());
        throw CaptureError(path + ": link type " + name +
                           " is not supported; use Ethernet, raw IP or Linux cooked");
    }
}

CaptureReader::~CaptureReader() = default;

bool CaptureReader::next(CapturedFrame& frame) {
    pcap_pkthdr* header = nullptr;
    const u_char* octets = nullptr;
    const int status = pcap_next_ex(source_->handle, &header, &octets);
    if (status == PCAP_ERROR_BREAK) {
        return false;
    }
    if (status != 1) {
        throw CaptureError(path_ + ": frame " + std::to_string(frames_ + 1) +
                           " cannot be read: " + pcap_geterr(source_->handle));
    }
    frame.number = ++frames_;
    frame.time.seconds = header->ts.tv_sec;
    frame.time.nanoseconds = static_cast<int32_t>(header->ts.tv_usec * (nanoseconds_ ? 1 : 1000));
    if (frame.number == 1) {
        start_ = frame.time;
    }
    frame.captureStart = start_;
    frame.wireLength = header->len;
    frame.octets.assign(octets, octets + header->caplen);
    return true;
}

int CaptureReader::linkType() const {
    return pcap_datalink(source_->handle);
}

int CaptureReader::snapshotLength() const {
    return pcap_snapshot(source_->handle);
}

double CaptureReader::progress() const {
    const long at = std::ftell(pcap_file(source_->handle));
    return fileSize_ <= 0 || at < 0 ? -1.0
                                    : static_cast<double>(at) / static_cast<double>(fileSize_);
}

struct CaptureWriter::Sink {
    explicit Sink(pcap_t* opened) : handle(opened) {}
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink() {
        if (dumper != nullptr) {
            pcap_dump_close(dumper);
        }
        pcap_close(handle);
    }

    FileBuffer buffer; // goes after the dumper, which closes the file
    pcap_t* handle;
    pcap_dumper_t* dumper = nullptr;
};

CaptureWriter::CaptureWriter(const std::string& path, const CaptureReader& like)
    : path_(path), nanoseconds_(like.hasNanoseconds()) {
    pcap_t* const handle = pcap_open_dead_with_tstamp_precision(
        like.linkType(), like.snapshotLength(),
        nanoseconds_ ? PCAP_TSTAMP_PRECISION_NANO : PCAP_TSTAMP_PRECISION_MICRO);
    if (handle == nullptr) {
        throw CaptureError(path + ": not enough memory");
    }
    sink_ = std::make_unique<Sink>(handle);
    std::FILE* const file = path == "-" ? stdout : std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw CaptureError("cannot write the output: " + path + ": " + systemError());
    }
    if (file != stdout) {
        sink_->buffer.giveTo(file);
    }
    sink_->dumper = pcap_dump_fopen(handle, file);
    if (sink_->dumper == nullptr) {
        if (file != stdout) {
            static_cast<void>(std::fclose(file));
        }
        throw CaptureError(std::string("cannot write the output: ") + pcap_geterr(handle));
    }
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(const CapturedFrame& frame) {
    pcap_pkthdr header{};
    header.ts.tv_sec = frame.time.seconds;
    header.ts.tv_usec = frame.time.nanoseconds / (nanoseconds_ ? 1 : 1000);
    header.caplen = static_cast<bpf_u_int32>(frame.octets.size());
    header.len = frame.wireLength;
    pcap_dump(reinterpret_cast<u_char*>(sink_->dumper), &header, frame.octets.data());
    if (std::ferror(pcap_dump_file(sink_->dumper)) != 0) {
        throw CaptureError(path_ + ": frame " + std::to_string(frame.number) +
                           " cannot be written: " + systemError());
    }
}

void CaptureWriter::finish() {
    if (pcap_dump_flush(sink_->dumper) != 0) {
        throw CaptureError(path_ + ": cannot be written to the end: " + systemError());
    }
}

} // namespace gateway
