#pragma once

#include <string>

#include "asn1gen/locate_program.h"

namespace asn1gen {

/// "tables.cpp": the programs as the locator reads them.
std::string emitLocatorTables(const LocatePrograms& programs);

/// "fields.h": constants for what places say about where they stand.
std::string emitLocatorFields(const LocatePrograms& programs);

/// "name_tables.cpp": the members' names.
std::string emitLocatorNames(const LocatePrograms& programs);

} // namespace asn1gen
