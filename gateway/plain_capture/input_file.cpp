#include "gateway/plain_capture/input_file.h"

#include <bit>
#include <cerrno>
#include <cstring>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

#include "gateway/capture_file.h"

namespace gateway::plain_capture {

std::string systemError() {
    return std::strerror(errno);
}

void makeBinary(std::FILE* file) {
#if defined(_WIN32)
    _setmode(_fileno(file), _O_BINARY);
#else
    (void)file;
#endif
}

void closeFile(std::FILE* file) {
    if (file != stdin && file != stdout) {
        // Whoever writes has flushed before; there is nothing left to fail.
        (void)std::fclose(file);
    }
}

uint32_t swapped(uint32_t value) {
    return (value >> 24) | ((value >> 8) & 0xFF00) | ((value << 8) & 0xFF0000) | (value << 24);
}

bool InputFile::read(uint8_t* octets, size_t count) {
    const size_t got = std::fread(octets, 1, count, file_);
    position_ += got;
    if (got == count) {
        return true;
    }
    if (std::ferror(file_) != 0) {
        throw CaptureError(systemError());
    }
    if (got != 0) {
        throw CaptureError("the file ends inside it");
    }
    return false;
}

void InputFile::readAll(uint8_t* octets, size_t count) {
    if (count != 0 && !read(octets, count)) {
        throw CaptureError("the file ends inside it");
    }
}

uint16_t InputFile::number16(const uint8_t* octets) const {
    uint16_t value = 0;
    std::memcpy(&value, octets, sizeof value);
    return swapped_ ? static_cast<uint16_t>((value >> 8) | (value << 8)) : value;
}

uint32_t InputFile::number32(const uint8_t* octets) const {
    uint32_t value = 0;
    std::memcpy(&value, octets, sizeof value);
    return swapped_ ? swapped(value) : value;
}

uint64_t InputFile::number64(const uint8_t* octets) const {
    const bool lowFirst = (std::endian::native == std::endian::little) != swapped_;
    const uint64_t low = number32(octets + (lowFirst ? 0 : 4));
    const uint64_t high = number32(octets + (lowFirst ? 4 : 0));
    return (high << 32) | low;
}

} // namespace gateway::plain_capture
