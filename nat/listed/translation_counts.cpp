#include "nat/listed/translation_counts.h"

#ifndef NDEBUG

#include <cstdio>
#include <cstdlib>
#include <string>

TranslationCounts translationCounts;

namespace {

void print(uint64_t count, const char* text) {
    if (count != 0) {
        (void)std::fprintf(stderr, "h323nat: %s %s\n", std::to_string(count).c_str(), text);
    }
}

// Destroyed when the module is unloaded or the process ends.
struct ReportAtEnd {
    ~ReportAtEnd() {
        if (std::getenv("H323NAT_COUNTS") == nullptr) {
            return;
        }
#define PRINT_TRANSLATION_COUNT(name, text) print(translationCounts.name, text);
        TRANSLATION_COUNTS(PRINT_TRANSLATION_COUNT)
#undef PRINT_TRANSLATION_COUNT
    }
};

const ReportAtEnd reportAtEnd;

} // namespace

#endif
