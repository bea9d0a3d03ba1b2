#include "tree/value_text.h"

#include <algorithm>

namespace tree {
namespace {

constexpr uint32_t lastAscii = 0x7E;
constexpr size_t longestNumber = 8;
constexpr char hexDigits[] = "0123456789abcdef";

void appendCharacter(std::string& text, uint32_t character) {
    if (character >= ' ' && character <= lastAscii && character != '"' && character != '\\') {
        text += static_cast<char>(character);
        return;
    }
    text += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        text += hexDigits[(character >> shift) & 15];
    }
}

} // namespace

std::string hexText(std::span<const uint8_t> octets) {
    std::string text;
    text.reserve(octets.size() * 2);
    for (const uint8_t octet : octets) {
        text += hexDigits[octet >> 4];
        text += hexDigits[octet & 15];
    }
    return text;
}

std::string hexText(const std::string& octets) {
    return hexText(std::span(reinterpret_cast<const uint8_t*>(octets.data()), octets.size()));
}

std::string escapedText(std::string_view characters) {
    std::string text;
    for (const char character : characters) {
        appendCharacter(text, static_cast<unsigned char>(character));
    }
    return text;
}

std::string escapedText(const BMPStringValue& characters) {
    std::string text;
    for (uint32_t i = 0; i < characters.nchars; ++i) {
        appendCharacter(text, characters.data[i]);
    }
    return text;
}

std::string identifierText(const ObjectIdentifier& identifier) {
    std::string text;
    for (uint32_t i = 0; i < identifier.numarcs; ++i) {
        text += (i == 0 ? "" : ".") + std::to_string(identifier.arcs[i]);
    }
    return text;
}

std::string signedText(std::span<const uint8_t> octets) {
    if (octets.size() > longestNumber) {
        return "0x" + hexText(octets);
    }
    uint64_t number = !octets.empty() && octets[0] >= 128 ? UINT64_MAX : 0;
    for (const uint8_t octet : octets) {
        number = number << 8 | octet;
    }
    return std::to_string(static_cast<int64_t>(number));
}

std::string offsetText(int64_t base, std::span<const uint8_t> octets) {
    if (octets.size() >= longestNumber) {
        return "0x" + hexText(octets);
    }
    int64_t number = base;
    uint64_t above = 0;
    for (const uint8_t octet : octets) {
        above = above << 8 | octet;
    }
    number += static_cast<int64_t>(above);
    return std::to_string(number);
}

std::string readableText(std::span<const uint8_t> octets) {
    constexpr size_t shortest = 3;
    const bool readable =
        octets.size() >= shortest && std::all_of(octets.begin(), octets.end(), [](uint8_t octet) {
            return octet >= ' ' && octet <= lastAscii;
        });
    std::string text;
    if (readable) {
        text = "\"";
        for (const uint8_t octet : octets) {
            appendCharacter(text, octet);
        }
        text += '"';
    }
    return text;
}

} // namespace tree
