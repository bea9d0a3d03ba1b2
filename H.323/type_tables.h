// The generated tables, as registry.cpp reads them.
#pragma once

#include "H.323/type_description.h"

extern const TypeDescription* const generatedTypes[];
extern const size_t generatedTypeCount;
