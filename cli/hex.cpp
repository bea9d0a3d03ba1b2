#include "cli/hex.h"

#include <cctype>
#include <stdexcept>

namespace cli {
namespace {

constexpr std::string_view digits = "0123456789abcdef";

bool separates(char c) {
    return c == ':' || std::isspace(static_cast<unsigned char>(c)) != 0;
}

uint8_t digitValue(char c, size_t place) {
    const auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const size_t value = digits.find(lower);
    if (value == std::string_view::npos) {
        throw std::runtime_error(std::string("'") + c + "' at character " +
                                 std::to_string(place + 1) + " is not a hexadecimal digit");
    }
    return static_cast<uint8_t>(value);
}

} // namespace

std::vector<uint8_t> fromHex(std::string_view text) {
    std::vector<uint8_t> octets;
    bool half = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (separates(text[i])) {
            continue;
        }
        const uint8_t value = digitValue(text[i], i);
        if (half) {
            octets.back() = static_cast<uint8_t>(octets.back() << 4 | value);
        } else {
            octets.push_back(value);
        }
        half = !half;
    }
    if (half) {
        throw std::runtime_error(
            "an odd number of hexadecimal digits; the last octet is incomplete");
    }
    return octets;
}

} // namespace cli
