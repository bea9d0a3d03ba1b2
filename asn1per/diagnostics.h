// Dormant diagnostics: field tracking maps an encoding to its fields, printers show values on
// standard output. Off, they cost a flag test.
#pragma once

#include "asn1per/context.h"

// A tracked field: where it starts and how many bits it has. Lives in the context's heap.
struct FieldRecord {
    const char* name;   // a space, then the label
    uint32_t bitOffset; // absolute bit position, without alignment bits before it
    uint32_t bitCount;  // 0 while the field is open
};

struct FieldNode {
    FieldNode* next;
    FieldRecord* record;
};

FieldRecord* pu_openField(PerContext* ctx, const char* label);
void pu_moveFieldStart(PerContext* ctx);
void pu_closeField(PerContext* ctx);

// Opens a record at the cursor. Null, and nothing done, while tracking is off or when memory is
// exhausted.
inline FieldRecord* pu_newField(PerContext* ctx, const char* label) {
    return (ctx->flags & PER_FLAG_TRACKING) != 0 ? pu_openField(ctx, label) : nullptr;
}

// Move the start, or set the length, of the newest record to the cursor. Nothing is done while
// tracking is off.
inline void pu_setFieldBitOffset(PerContext* ctx) {
    if ((ctx->flags & PER_FLAG_TRACKING) != 0) {
        pu_moveFieldStart(ctx);
    }
}
inline void pu_setFieldBitCount(PerContext* ctx) {
    if ((ctx->flags & PER_FLAG_TRACKING) != 0) {
        pu_closeField(ctx);
    }
}

// Tracing of a whole function, with one test while the switch is off. The function begins with
//
//     if (rtTraceOn != 0 && pu_beginTrace(ctx, "asn1PD_X")) {
//         return pu_endTrace("asn1PD_X", asn1PD_X(ctx, value));
//     }
//
// pu_beginTrace prints the start and is true; it is false in the call inside, which does the work.
// pu_endTrace prints the end of a success and returns `status`.
[[gnu::cold]] bool pu_beginTrace(PerContext* ctx, const char* function);
[[gnu::cold]] int32_t pu_endTrace(const char* function, int32_t status);

void rtPrintBoolean(const char* name, uint8_t value);
void rtPrintInteger(const char* name, int32_t value);
void rtPrintUnsigned(const char* name, uint32_t value);
void rtPrintCharStr(const char* name, const char* value);
void rtPrintBitStr(const char* name, uint32_t bitCount, const uint8_t* data, const char* separator);
void rtPrintOctStr(const char* name, uint32_t octets, const uint8_t* data, const char* separator);
void rtPrint16BitCharStr(const char* name, const BMPStringValue* value, const char* separator);
void rtPrintOID(const char* name, const ObjectIdentifier* value);
void rtHexDump(const uint8_t* data, uint32_t octets);
