#pragma once

#include <optional>
#include <string>
#include <vector>

#include "asn1gen/locate_program.h"
#include "asn1gen/model.h"

/// The locator's instructions for what holds nothing that is told (X.691, aligned variant).
namespace asn1gen {

/// A length or count: the constant or number of its form in an argument, and the least value.
struct SizeForm {
    std::string form;
    int64_t lower = 0;
};

/// Of a number of a range up to 65536 values wide.
std::string rangeForm(const Range& range);

/// Of a list's count. Throws SourceError for an extensible SIZE.
SizeForm sizeForm(const Type& list);

/// A string whose length lies within a SIZE constraint.
struct SizedItems {
    std::string form;
    int64_t lower = 0;
    int64_t bits = 0; ///< of an item
    bool aligned = false;

    /// As the locator's instruction has it.
    std::string unit() const;
};

/// Nothing for other types, and for sizes without an upper bound of 65535 or less.
std::optional<SizedItems> sizedItems(const Type& type);

/// One instruction, or an orVariable with the instruction behind it.
struct SkipInstruction {
    std::string operation; ///< enumerator of LocatorOp
    std::string argument;
    std::vector<std::string> words; ///< behind the first
    bool orVariable = false;
    int64_t run = 0; ///< of skip and skipOctets: their number; 0 when more cannot be added
};

struct SkipCode {
    std::vector<SkipInstruction> instructions;
    bool isWhole = true; ///< false: the type needs a program or a list
};

/// Adds the instructions that step over a value of the type.
void skipInto(SkipCode& code, const Type& type);

void appendSkip(std::vector<LocateWord>& words, const SkipCode& code);

/// The same for an OPTIONAL member and at most one instruction.
void appendOptional(std::vector<LocateWord>& words, const SkipCode& code);

/// Programs without places that do the same become one.
void mergeEqualPrograms(LocatePrograms& programs);

} // namespace asn1gen
