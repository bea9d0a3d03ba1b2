// All types of the codecs by name. Not part of the module library.
#pragma once

#include <cstddef>
#include <string_view>

#include "asn1per/type_description.h"

// Number of named types, and the one with this index, in the order of their modules and within a
// module used types first. index must be below the count.
size_t registeredTypeCount();
const TypeDescription& registeredType(size_t index);

// The type with this C++ name, as "H225Setup_UUIE"; null when there is none.
const TypeDescription* findType(std::string_view name);
