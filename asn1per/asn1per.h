// The PER runtime: everything that an encoder or decoder of ITU-T X.691 (aligned or unaligned
// variant) needs beneath the generated codecs.
//
//   status.h       status codes, error logging, trace switch
//   context.h      value types, context, heap, allocator, block pool, source spans
//   encode.h       writing: bits, whole numbers, lengths, INTEGER, BIT/OCTET STRING, open type
//   decode.h       the same, reading
//   strings.h      character strings and OBJECT IDENTIFIER
//   extensions.h   extension additions, extension alternatives, kept unknown content
//   diagnostics.h  field tracking and value printers
//
// Calling order for one message: pu_initContext over zeroed memory, optionally pu_setBlockPool and
// pu_recordSpans, the top-level encoder or decoder, pe_getMsgPtr after encoding, pu_freeContext.
// Decoded values live in the context's heap and end with it.
//
// After a failing status a context serves only for pu_freeContext and pu_initContext. Whatever its
// cursor is then, no further call reads or writes outside the buffer.
#pragma once

#include "asn1per/context.h"
#include "asn1per/decode.h"
#include "asn1per/diagnostics.h"
#include "asn1per/encode.h"
#include "asn1per/extensions.h"
#include "asn1per/status.h"
#include "asn1per/strings.h"
