#pragma once

#include <string>
#include <vector>

#include "asn1gen/emitter.h"

/// What encoders and decoders have in common: the frame of a function, calls of the runtime, and
/// the walk over fields and alternatives.
namespace asn1gen {

/// A whole function: its head, tracing, the limit of nesting, and what body writes. nesting is the
/// prefix of the runtime's functions for the limit, "pd_" or "pe_".
void emitFunction(CodeWriter& writer, const Type& type, const Signature& signature,
                  const std::string& nesting, void (*body)(CodeWriter& writer, const Type& type));

/// CHECK(function(ctx, arguments));
void emitCall(CodeWriter& writer, const std::string& function, std::vector<std::string> arguments);

/// The call of the one primitive that codes a simple type other than INTEGER and ENUMERATED: its
/// name behind prefix, and the type's constraints behind the arguments.
void emitPrimitive(CodeWriter& writer, const std::string& prefix, const Type& type,
                   std::vector<std::string> arguments);

/// Where the type has a size constraint: the form of the primitive that takes it, and its bounds.
void addSize(std::string& function, std::vector<std::string>& arguments, const Type& type);

/// One primitive codes a value of the type: its parents code it in place, without a call of the
/// type's own function.
bool isCodedInPlace(const Type& type);

/// Stand around the code in place. A type with traces is coded by its own function while tracing is
/// on; function and arguments are that call.
void openInPlace(CodeWriter& writer, const Type& type, const std::string& function,
                 const std::vector<std::string>& arguments);
void closeInPlace(CodeWriter& writer, const Type& type);

/// A field of the record that a function codes.
ValueRef memberRef(const Component& component);

using ValueCode = void (*)(CodeWriter& writer, const Type& type, const ValueRef& value);
using RunCode = void (*)(CodeWriter& writer, const std::vector<const Component*>& booleans);
using AlternativeCode = void (*)(CodeWriter& writer, const Component& alternative);

/// The root fields of a SEQUENCE from position first on, in order: neighbouring BOOLEANs by run,
/// any other by value.
void emitRoot(CodeWriter& writer, const Type& sequence, size_t first, RunCode run, ValueCode value);

/// The switch over the alternatives of a CHOICE; those without a member need no case of their own.
void emitAlternatives(CodeWriter& writer, const Type& choice,
                      const std::vector<Component>& alternatives, AlternativeCode code);

} // namespace asn1gen
