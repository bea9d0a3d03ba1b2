#include "cli/message_input.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "cli/hex.h"

namespace cli {
namespace {

using namespace std::string_view_literals;

constexpr std::streamsize longestBeginning = 4;

bool isCapture(const std::string& content) {
    constexpr std::array<std::string_view, 5> beginnings = {
        "\xA1\xB2\xC3\xD4"sv, "\xD4\xC3\xB2\xA1"sv, "\xA1\xB2\x3C\x4D"sv, "\x4D\x3C\xB2\xA1"sv,
        "\x0A\x0D\x0D\x0A"sv};
    return std::any_of(beginnings.begin(), beginnings.end(), [&](std::string_view beginning) {
        return content.compare(0, beginning.size(), beginning) == 0;
    });
}

bool isText(const std::string& content) {
    return std::all_of(content.begin(), content.end(), [](char c) {
        const auto octet = static_cast<unsigned char>(c);
        return std::isprint(octet) != 0 || std::isspace(octet) != 0;
    });
}

/// Hexadecimal text is told from a short binary message by holding nothing but text.
std::vector<uint8_t> octetsOf(const std::string& content) {
    return isText(content) ? fromHex(content)
                           : std::vector<uint8_t>(content.begin(), content.end());
}

bool isHex(const std::string& word) {
    return std::all_of(word.begin(), word.end(), [](char c) {
        return c == ':' || std::isxdigit(static_cast<unsigned char>(c)) != 0;
    });
}

MessageInput readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file || std::filesystem::is_directory(path)) {
        throw std::runtime_error(path + " cannot be read");
    }
    std::string content(longestBeginning, '\0');
    file.read(content.data(), longestBeginning);
    content.resize(static_cast<size_t>(file.gcount()));
    if (isCapture(content)) {
        if (!std::filesystem::is_regular_file(path)) {
            throw std::runtime_error(path + " is a capture, which is read from a file alone");
        }
        return {path, true, {}};
    }
    content.append(std::istreambuf_iterator<char>(file), {});
    try {
        return {path, false, octetsOf(content)};
    } catch (const std::exception& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

bool isFile(const std::string& word) {
    std::error_code ignored;
    return !isHex(word) && std::filesystem::exists(word, ignored);
}

} // namespace

std::vector<MessageInput> readMessageInputs(const std::vector<std::string>& words) {
    if (std::all_of(words.begin(), words.end(), isFile)) {
        std::vector<MessageInput> files;
        std::transform(words.begin(), words.end(), std::back_inserter(files), readFile);
        return files;
    }
    if (words.size() == 1 && words[0] == "-") {
        const std::string content(std::istreambuf_iterator<char>(std::cin), {});
        if (isCapture(content)) {
            throw std::runtime_error(
                "standard input is a capture, which is read from a file alone");
        }
        return {{"", false, octetsOf(content)}};
    }
    std::string text;
    for (const std::string& word : words) {
        text += word == "-" ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : word;
    }
    try {
        return {{"", false, fromHex(text)}};
    } catch (const std::exception& error) {
        if (words.size() == 1) {
            throw std::runtime_error("no file has this name: " + words[0] +
                                     "; nor is it hexadecimal: " + error.what());
        }
        if (std::any_of(words.begin(), words.end(), isFile)) {
            const auto other = std::find_if_not(words.begin(), words.end(), isFile);
            throw std::runtime_error(*other + " cannot be read");
        }
        throw;
    }
}

} // namespace cli
