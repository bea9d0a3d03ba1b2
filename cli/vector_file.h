#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// A line "TYPE HEX [THIRD] [#REMARK]" of a file of test vectors.
struct VectorLine {
    size_t number = 0; ///< from 1
    std::string type;
    std::vector<uint8_t> encoding;
    std::string third;       ///< empty when the line has none
    std::string remark = {}; ///< with its #
};

/// Reads the lines of a file of test vectors, leaving out empty ones and those that begin with '#'.
class VectorReader {
public:
    explicit VectorReader(std::istream& stream) : stream(stream) {}

    /// The next line; nothing at the end. Throws std::runtime_error for a line that is not of this
    /// form; reading can then go on with the line behind it.
    std::optional<VectorLine> next();

    /// The number of the line read last.
    size_t lineNumber() const { return number; }

private:
    std::istream& stream;
    size_t number = 0;
};

} // namespace cli
