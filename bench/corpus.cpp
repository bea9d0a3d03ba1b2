#include "bench/corpus.h"

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include "H.323/registry.h"
#include "cli/hex.h"

namespace bench {
namespace {

[[noreturn]] void fail(int line, const std::string& fault) {
    std::cerr << H323NAT_BENCH_CORPUS << ":" << line << ": " << fault << "\n";
    std::exit(2);
}

} // namespace

std::vector<CorpusMessage> readCorpus() {
    std::ifstream file(H323NAT_BENCH_CORPUS);
    std::vector<CorpusMessage> corpus;
    std::string line;
    int number = 1;
    for (; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream words(line);
        std::string type;
        std::string hex;
        CorpusMessage message{};
        words >> type >> message.name >> hex;
        message.type = findType(type);
        if (message.type == nullptr) {
            fail(number, "no type has the name \"" + type + "\"");
        }
        try {
            message.octets = cli::fromHex(hex);
        } catch (const std::exception& error) {
            fail(number, error.what());
        }
        corpus.push_back(message);
    }
    if (corpus.empty()) {
        fail(number, "no messages; expected lines TYPE NAME HEX");
    }
    return corpus;
}

} // namespace bench
