#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace gateway::plain_capture {

// The system's words for the last failure of a file.
std::string systemError();

// Windows' standard streams would otherwise change octets that look like line ends.
void makeBinary(std::FILE* file);

// Leaves standard streams open.
void closeFile(std::FILE* file);

uint32_t swapped(uint32_t value);

// A file of octets whose numbers stand in either byte order. What is wrong is thrown as
// CaptureError, without the file's name.
class InputFile {
public:
    // Takes the file over.
    explicit InputFile(std::FILE* file) : file_(file) {}
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile() { closeFile(file_); }

    // False at the end of the file; throws when only a part of `count` octets is left.
    bool read(uint8_t* octets, size_t count);

    // Throws when the file ends before.
    void readAll(uint8_t* octets, size_t count);

    // Octets read so far.
    [[nodiscard]] uint64_t position() const { return position_; }

    void setSwapped(bool swapped) { swapped_ = swapped; }

    // Numbers at `octets`, in the file's byte order.
    [[nodiscard]] uint16_t number16(const uint8_t* octets) const;
    [[nodiscard]] uint32_t number32(const uint8_t* octets) const;
    [[nodiscard]] uint64_t number64(const uint8_t* octets) const;

private:
    std::FILE* file_;
    bool swapped_ = false;
    uint64_t position_ = 0;
};

} // namespace gateway::plain_capture
