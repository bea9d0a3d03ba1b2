#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

/// What a command is given where it expects messages.
struct MessageInput {
    std::string file;       ///< as it was named; empty for hexadecimal words and standard input
    bool isCapture = false; ///< a pcap or pcapng file, which is not read; then there are no octets
    std::vector<uint8_t> octets;
};

/// Words of hexadecimal digits, which may be many and are one message together; or words that name
/// files, or one - for standard input. A file is a capture, text with hexadecimal digits, or else
/// the octets themselves. A word of hexadecimal digits is a message even where a file has that name
/// (./NAME is the file). Throws std::runtime_error for a word that is neither, a file that cannot
/// be read, and a capture on standard input.
std::vector<MessageInput> readMessageInputs(const std::vector<std::string>& words);

} // namespace cli
