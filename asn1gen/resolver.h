#pragma once

#include <map>
#include <string>
#include <vector>

#include "asn1gen/model.h"
#include "asn1gen/syntax.h"

namespace asn1gen {

/// Resolves references, imports and parameters of the modules and names every type.
///
/// Names: a type assignment is PREFIX + its name; a type written inside another one is named by its
/// position, OUTER_field; an unsized list is named after its element and shared by all its uses.
/// A parameterised type whose parameter only constrains it has one instance for all its uses; one
/// whose parameter is a component is a type of its own at each place.
///
/// options gives each module's options by the module's name; a module without an entry gets an
/// empty prefix. Throws SourceError for an undefined name, a wrong number of parameters, a
/// constraint where it is not known, and imports in a circle.
Model resolve(const std::vector<ModuleSyntax>& modules,
              const std::map<std::string, ModuleOptions>& options);

} // namespace asn1gen
