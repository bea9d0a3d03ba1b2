#include "asn1per/asn1per.h"

#include <cstdarg>
#include <cstdio>

int32_t rtTraceOn = 0;

void rtSetTrace(int32_t value) {
    rtTraceOn = value;
}

void rtTracePrint(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (void)std::vprintf(format, arguments);
    va_end(arguments);
}
