// The programs that asn1gen makes of the modules for the locator, one for each type that is not
// coded in a few instructions where it stands. Words of 16 bits; an instruction is one to four of
// them, or as many as it says.
#pragma once

#include <cstddef>
#include <cstdint>

#include "locator/locator.h"

// Lengths, counts and numbers of a range come in one of these forms (X.691 10.5, 10.9): so many
// bits, or
constexpr uint16_t aligned8 = 9;      // one aligned octet
constexpr uint16_t aligned16 = 10;    // two
constexpr uint16_t openLength = 11;   // a length determinant without upper bound
constexpr uint16_t lengthForm = 0x0F; // the bits of an argument that hold the form

enum class LocatorOp : uint32_t {
    end,          // of a program
    skip,         // arg bits
    skipOctets,   // arg octets, aligned
    longInteger,  // arg bits of length - 1, that many octets, aligned
    variable,     // a length without upper bound, times arg octets, or bits for 0
    sized,        // arg: form; lower bound; bits of an item | stringAligned
    orVariable,   // extension bit: 0: the value as the next instruction has it, 1: variable(1)
    boundedIndex, // arg: greatest number of a range, in as many bits as that takes
    nullChoice,   // arg: greatest index of an extensible CHOICE of things without content
    enumeration,  // arg: greatest index of an extensible ENUMERATED
    sequence,     // preamble; arg: OPTIONAL members | extensible
    // arg: bits of the index | extensible | told; greatest root index | known additions << 8;
    // when told: kind, field; then a program for each alternative
    choice,
    call,      // arg: last, lastIfRoot, withField; program; field
    list,      // arg: form, last, lastIfRoot, withField; least count; element's program; field
    container, // a message in an octet string; its program
    address,   // 4 octets and 2, aligned
    field,     // what holds the address that comes; field
    rest,      // nothing is told behind here; arg: lastIfRoot
    additions, // arg: words of mask; mask of those with places; (index, program)...; endOfAdditions
    jump,      // program
    tellOctets,   // arg octets, aligned; kind; field
    tellNumber,   // kind | form << 8; field; lower bound
    tellString,   // as sized; field
    tellPresence, // kind; field
};

constexpr uint16_t operationMask = 0x1F;
constexpr uint16_t optionalInstruction = 0x20; // only if the next presence bit is 1
constexpr unsigned sizeShift = 6;              // two bits: words - 1
constexpr unsigned argumentShift = 8;

// Flags of arguments.
constexpr uint16_t extensible = 0x80;     // sequence, choice
constexpr uint16_t told = 0x40;           // choice
constexpr uint16_t last = 0x80;           // call, list: no place behind it in this program
constexpr uint16_t lastIfRoot = 0x40;     // with last, rest: unless extension additions are there
constexpr uint16_t withField = 0x20;      // call, list
constexpr uint16_t stringAligned = 0x100; // sized: items are aligned

constexpr uint16_t endOfAdditions = 0xFFFF;

constexpr uint16_t instruction(LocatorOp operation, unsigned words, unsigned argument = 0,
                               bool optional = false) {
    return static_cast<uint16_t>(static_cast<unsigned>(operation) |
                                 (optional ? optionalInstruction : 0U) | (words - 1) << sizeShift |
                                 argument << argumentShift);
}

constexpr uint16_t kindWord(PlaceKind kind) {
    return static_cast<uint16_t>(kind);
}

// Word 0 is an end and word 1 a rest, for whoever needs one of its own.
constexpr uint16_t endProgram = 0;
constexpr uint16_t restProgram = 1;

extern const uint16_t locatorProgram[];
extern const uint16_t locatorRoots[];            // programs of the top-level types
extern const uint16_t locatorProgramsWithPlaces; // the programs from here on have places
