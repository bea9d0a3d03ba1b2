#pragma once

#include "asn1gen/model.h"

namespace asn1gen {

/// Throws SourceError when two things of the modules get the same C++ name, or one gets a name of
/// the runtime's or of the generated code's own. To be called before emission, after layOut().
void checkNames(const Model& model);

} // namespace asn1gen
