#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "asn1gen/syntax.h"

namespace asn1gen {

/// Reads the modules of one file. Throws SourceError that says what was expected; notation that is
/// valid ASN.1 but not known here (ENUMERATED, DEFAULT, explicit tags, ...) is refused by its name.
std::vector<ModuleSyntax> parseModules(std::string_view text, const std::string& fileName);

} // namespace asn1gen
