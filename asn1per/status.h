// Status codes, error logging and the trace switch, shared by the runtime and the codecs.
#pragma once

#include <cstdint>

// 0 is success, negative values are failures. A caller returns the first failing status that it
// receives and tries nothing else.
enum PerStatus : int32_t {
    PER_OK = 0,
    PER_FRAGMENT = 2,       // pd_Length only: a fragment, another length determinant follows
    PER_OVERFLOW = -1,      // encoding does not fit; decoding: cursor moved past the data
    PER_END_OF_DATA = -2,   // a decoder needs more bits than remain
    PER_BAD_OID = -4,       // arcs that no OBJECT IDENTIFIER can have, or more than 128
    PER_BAD_CHOICE = -11,   // CHOICE index without an alternative
    PER_NO_MEMORY = -12,    // buffer, heap block or heap allocation failed
    PER_DOES_NOT_FIT = -17, // longer than its destination, or character outside the alphabet
    PER_CONSTRAINT = -23,   // length or character index outside its constraint
    PER_RANGE = -24,        // bounded INTEGER outside its bounds
    PER_TOO_DEEP = -30,     // value of a recursive type nested deeper than PER_MAX_DEPTH
};

// Deepest nesting of values of recursive types. A hostile message nests one level with a few
// bits; without a limit it would exhaust the stack.
constexpr uint32_t PER_MAX_DEPTH = 32;

// Member of every context. Cleared at initialisation and never written afterwards.
struct ErrorInfo {
    int32_t status;
    int32_t line;
    const char* file;
};

// Returns `status` unchanged and does nothing else. Every failing path passes through it with the
// path and line of its source, so that a debugger or a patched build can see where a message
// failed.
inline int32_t rtLogError(ErrorInfo* /*error*/, int32_t status, const char* /*file*/,
                          int /*line*/) {
    return status;
}

// Trace switch of the process, 0 at start. Non-zero prints every traced step to standard output.
#if defined(__ELF__)
// Each module that links the runtime has its own, so that the test costs one instruction.
[[gnu::visibility("hidden")]]
#endif
extern int32_t rtTraceOn;

// Stores `value` in the trace switch. The primitives of a context hear of it when the context next
// takes a buffer.
void rtSetTrace(int32_t value);

// Prints like std::printf, whatever the switch says.
[[gnu::cold]] void rtTracePrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Prints like std::printf when the trace switch is on. Off, it costs one test.
inline void rtTrace(const char* text) {
    if (rtTraceOn != 0) [[unlikely]] {
        rtTracePrint("%s", text);
    }
}
template <typename... Arguments> inline void rtTrace(const char* format, Arguments... arguments) {
    if (rtTraceOn != 0) [[unlikely]] {
        rtTracePrint(format, arguments...);
    }
}
