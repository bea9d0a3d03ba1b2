#pragma once

#include <string>

namespace cli {

enum class Stream { Output, Error };

/// A standard stream that the program was started without stays unusable: else the next file opened
/// would take its number, and what is for people would be written into that file.
void keepClosedStreams();

bool isTerminal(Stream stream);

/// A terminal that shows colours, unless the user's NO_COLOR says none.
bool hasColours(Stream stream);

/// Text of files and packets for a terminal: what would steer it becomes '?'.
std::string printable(const std::string& text);

/// "h323nat: " and the message on standard error: what was wrong, where, what to do.
void complain(const std::string& message);

} // namespace cli
