#pragma once

#include "asn1gen/model.h"

namespace asn1gen {

/// Throws SourceError for a constraint that the type in its notation cannot have, or that is not
/// supported.
void checkConstraints(const TypeSyntax& type);

/// Fills in kind, constraints and items of a type without components, whose constraints were
/// checked. Throws SourceError for items that do not go together and for an alphabet without
/// characters.
void describeSimple(const TypeSyntax& syntax, Type& type);

} // namespace asn1gen
