// Translators that record what the hooks give them and answer what a test wants.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct TranslatorCall {
    std::string entry;
    size_t payloadAt; // octets behind the first of the packet's payload; 0 when right
    uint32_t length;
    std::vector<uint32_t> numbers; // other arguments in their order

    bool operator==(const TranslatorCall&) const = default;
};

struct RecordedTranslators {
    std::vector<TranslatorCall> calls;
    const uint8_t* payload; // of the test's packet
    void* hostContext;      // the last one given
    std::string rewriting;  // the entry that answers 1
    uint32_t otherAnswer;   // of the others
};

extern RecordedTranslators translators;
