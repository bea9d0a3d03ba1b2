// The messages that the codecs are measured on: real and typical signalling of H.225.0, H.245 and
// RAS, one of each kind.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "asn1per/type_description.h"

namespace bench {

struct CorpusMessage {
    const TypeDescription* type;
    std::string name;
    std::vector<uint8_t> octets;
};

// Reads bench/corpus.txt: lines "TYPE NAME HEX", comments begin with '#'. A line that is not of
// this form ends the program with a message that names it.
std::vector<CorpusMessage> readCorpus();

} // namespace bench
