#pragma once

#include <string>

namespace asn1gen {

/// An ASN.1 name as part of a C++ name: hyphens become underscores.
std::string cName(const std::string& asn1Name);

/// The member of a record for an ASN.1 identifier; a C++ keyword gets an underscore behind it.
std::string memberName(const std::string& identifier);

/// An unsized list's name: PREFIX_SeqOfELEMENT or PREFIX_SetOfELEMENT.
std::string listName(const std::string& prefix, bool setOf, const std::string& elementName);

} // namespace asn1gen
