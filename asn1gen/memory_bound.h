#pragma once

#include <cstdint>

#include "asn1gen/model.h"

namespace asn1gen {

/// The least whole number m such that decoding any value of any named type of the module takes at
/// most m octets of heap for each octet of its encoding, whatever a sender writes. Counted for
/// 64-bit machines, where records are largest, without the unused rest of heap blocks.
///
/// What makes m large is a record with a wide array, such as OCTET STRING (SIZE (1..65535)), that
/// an encoding of a few octets calls into being.
int64_t memoryPerOctet(const Module& module);

} // namespace asn1gen
