#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace cli {

/// Octets from hexadecimal digits; blanks and colons between them are skipped. Throws
/// std::runtime_error that names the first character which is none of these, or says that the
/// number of digits is odd.
std::vector<uint8_t> fromHex(std::string_view text);

} // namespace cli
