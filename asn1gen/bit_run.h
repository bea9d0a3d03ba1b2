#pragma once

#include <cstddef>
#include <vector>

#include "asn1gen/model.h"

namespace asn1gen {

/// The single bits at the start of a SEQUENCE, coded in one go: extension bit, presence bits, then
/// the mandatory BOOLEAN fields up to the first field of another kind. Bit 0 comes first.
struct LeadingBits {
    bool extension = false;
    int presence = 0; ///< bits of OPTIONAL root fields
    std::vector<const Component*> booleans;

    int count() const { return (extension ? 1 : 0) + presence + static_cast<int>(booleans.size()); }
    int presenceAt() const { return extension ? 1 : 0; }
    int booleansAt() const { return presenceAt() + presence; }
};

/// Runs have at most 32 bits; booleans beyond are left to their place.
LeadingBits leadingBits(const Type& sequence);

/// The mandatory BOOLEAN fields of the root from position first on, at most 32.
std::vector<const Component*> booleanRun(const std::vector<Component>& root, size_t first,
                                         size_t limit);

} // namespace asn1gen
