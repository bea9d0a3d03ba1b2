// What became of the messages that the translators examined. Debug builds count, and print the
// counts to standard error when the module is unloaded if the environment variable H323NAT_COUNTS
// is set. Release builds (NDEBUG) have neither the counters nor any code for them.
#pragma once

#include <cstdint>

// One entry per cause: member name, text for people. docs/what-is-translated.md explains them.
#define TRANSLATION_COUNTS(COUNT)                                                                  \
    COUNT(messagesDecoded, "messages decoded")                                                     \
    COUNT(messagesNotDecoded, "messages that do not decode, left as they are")                     \
    COUNT(elementsNotDecoded, "fast-start elements that do not decode, left as they are")          \
    COUNT(messagesEncoded, "messages encoded again over their old octets")                         \
    COUNT(messagesNotReproduced, "of these, messages that lost or changed content outside the "    \
                                 "fields that were set")                                           \
    COUNT(encodingsFailed, "encodings that failed, the old octets partly overwritten")             \
    COUNT(fieldsWritten, "addresses written in place")                                             \
    COUNT(placesUnknown, "addresses left: their place in the packet cannot be told")               \
    COUNT(placesGone, "addresses left: octets in an earlier segment")                              \
    COUNT(placesDiffer, "addresses left: the packet holds other octets than were decoded")         \
    COUNT(messagesGone, "messages not encoded again: they began in an earlier segment")            \
    COUNT(portsOutOfRange, "addresses left: public port 65535 has no port for RTCP behind it")

struct TranslationCounts {
#define TRANSLATION_COUNT_MEMBER(name, text) uint64_t name;
    TRANSLATION_COUNTS(TRANSLATION_COUNT_MEMBER)
#undef TRANSLATION_COUNT_MEMBER
};

#ifdef NDEBUG
constexpr bool debugChecks = false;
#else
constexpr bool debugChecks = true;
// Counts since the module was loaded or since the last reset by a test.
extern TranslationCounts translationCounts;
#endif

// Adds one to a counter; nothing in release builds.
inline void countTranslation([[maybe_unused]] uint64_t TranslationCounts::*counter) {
#ifndef NDEBUG
    ++(translationCounts.*counter);
#endif
}
