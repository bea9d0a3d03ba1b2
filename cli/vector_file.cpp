#include "cli/vector_file.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <stdexcept>

#include "cli/hex.h"

namespace cli {

std::optional<VectorLine> VectorReader::next() {
    std::string text;
    while (std::getline(stream, text)) {
        ++number;
        if (!std::all_of(text.begin(), text.end(), [](char character) {
                return std::isprint(static_cast<unsigned char>(character)) != 0 ||
                       std::isspace(static_cast<unsigned char>(character)) != 0 ||
                       static_cast<unsigned char>(character) >= 0x80;
            })) {
            throw std::runtime_error("this is no text");
        }
        std::istringstream fields(text);
        VectorLine line;
        line.number = number;
        if (!(fields >> line.type) || line.type[0] == '#') {
            continue;
        }
        std::string octets;
        std::string excess;
        if (!(fields >> octets)) {
            throw std::runtime_error("expected TYPE HEX, found only \"" + line.type + "\"");
        }
        line.encoding = fromHex(octets);
        fields >> line.third;
        if (!line.third.empty() && line.third[0] == '#') {
            line.remark.swap(line.third);
        }
        if (fields >> excess && excess[0] == '#') {
            line.remark = excess;
        } else if (!excess.empty()) {
            throw std::runtime_error("expected at most three fields, found \"" + excess +
                                     "\" behind them");
        }
        return line;
    }
    return std::nullopt;
}

} // namespace cli
