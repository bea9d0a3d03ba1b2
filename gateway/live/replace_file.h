#pragma once

#include <cstdint>
#include <string>

namespace gateway {

enum class OthersMay : uint8_t { Nothing, Read };

// Replaces a file in one step, so that a reader never sees half of it. Gives an empty text, or what
// went wrong.
std::string replaceFile(const std::string& path, const std::string& text, OthersMay others);

} // namespace gateway
