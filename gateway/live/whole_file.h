#pragma once

#include <cstdint>
#include <string>

namespace gateway {

// Metrics are for everybody to read. A state is for its owner alone, and is on the disk before it
// takes the place of the one before: a power cut leaves one of the two.
enum class FileUse : uint8_t { Metrics, State };

// Appends what the file holds. Gives 0, or the errno of what went wrong.
int readFile(const std::string& path, std::string& content);

// Replaces a file in one step, so that a reader never sees half of it. Gives an empty text, or what
// went wrong.
std::string replaceFile(const std::string& path, const std::string& text, FileUse use);

} // namespace gateway
