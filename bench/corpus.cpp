#include "bench/corpus.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "H.323/registry.h"

namespace bench {

static int digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

static std::optional<std::vector<uint8_t>> fromHex(const std::string& text) {
    std::vector<uint8_t> octets;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        const int high = digit(text[i]);
        const int low = digit(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        octets.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return octets.empty() || text.size() % 2 != 0 ? std::nullopt : std::optional(octets);
}

std::vector<CorpusMessage> readCorpus() {
    std::ifstream file(H323NAT_BENCH_CORPUS);
    std::vector<CorpusMessage> corpus;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream words(line);
        std::string type;
        std::string hex;
        CorpusMessage message{};
        words >> type >> message.name >> hex;
        message.type = findType(type);
        const auto octets = fromHex(hex);
        if (message.type == nullptr || !octets) {
            std::cerr << H323NAT_BENCH_CORPUS << ":" << number << ": not TYPE NAME HEX\n";
            std::exit(2);
        }
        message.octets = *octets;
        corpus.push_back(message);
    }
    if (corpus.empty()) {
        std::cerr << H323NAT_BENCH_CORPUS << ": no messages\n";
        std::exit(2);
    }
    return corpus;
}

} // namespace bench
