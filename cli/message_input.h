#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

/// What a command is given where it expects a message.
struct MessageInput {
    std::vector<uint8_t> octets;
    std::string capture; ///< path of a pcap or pcapng file; then there are no octets
};

/// Hexadecimal words, which may be many; or one word that names a file, or - for standard input.
/// A file is a capture, text with hexadecimal digits, or else the octets themselves. A word of
/// hexadecimal digits is a message even where a file has that name (./NAME is the file). Throws
/// std::runtime_error for a word that is neither, a file that cannot be read, and a capture on
/// standard input.
MessageInput readMessageInput(const std::vector<std::string>& words);

} // namespace cli
