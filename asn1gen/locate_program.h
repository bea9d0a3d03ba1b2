#pragma once

#include <map>
#include <string>
#include <vector>

#include "asn1gen/locate_fields.h"

namespace asn1gen {

/// A word of a locator program as C++, or the place of another program.
struct LocateWord {
    std::string text;
    int program = -1;
};

/// How the locator walks values of one type.
struct LocateProgram {
    std::string title; ///< the type's name
    std::vector<LocateWord> words;
    std::map<size_t, std::string> names; ///< members by the word at which they are walked
    bool hasPlaces = false;
};

struct LocatePrograms {
    std::vector<LocateProgram> programs;
    std::vector<int> roots;
    LocateFields fields;
};

/// Makes the programs for all that the list asks for; equal ones without places are one. Throws
/// SourceError for what the locator's instructions cannot do.
LocatePrograms makeLocatePrograms(const Model& model, const std::vector<LocateEntry>& entries);

} // namespace asn1gen
