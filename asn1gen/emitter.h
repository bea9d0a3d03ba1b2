#pragma once

#include <map>
#include <string>
#include <vector>

#include "asn1gen/code_writer.h"
#include "asn1gen/model.h"

/// Emission: one function for each kind of generated file, and what they share.
namespace asn1gen {

struct EmitOptions {
    std::string includeDirectory; ///< before the names of generated headers, "H.323/"
};

/// Records, presence masks, alternative numbers and declarations of a module's functions.
std::string emitHeader(const Module& module, const EmitOptions& options);

/// Encoders and decoders of a module.
std::string emitSource(const Module& module, const EmitOptions& options);

/// Type descriptions of all modules, for tools and tests, and the header that declares them.
std::string emitRegistryHeader();
std::string emitRegistry(const Model& model, const EmitOptions& options);

/// Tables that tree/message_type.h describes: all types, for decoding into trees. contents gives,
/// by the name of a member whose octet strings hold an encoding, the type of that encoding.
std::string emitTree(const Model& model, const std::map<std::string, const Type*>& contents);

// Shared by the emitters.

/// A C++ string literal.
std::string quote(const std::string& text);

/// "true" or "false".
std::string boolean(bool value);

/// The code of one type's functions, written into a module's source.
void emitEncoder(CodeWriter& writer, const Type& type);
void emitDecoder(CodeWriter& writer, const Type& type);

/// The head of a function without what follows it: return type, name and arguments.
struct Signature {
    std::string head;
    std::vector<std::string> arguments; ///< the context first

    /// Names of the arguments behind the context.
    std::vector<std::string> names() const;

    /// A call of the function from inside, with its own arguments.
    std::string callAgain() const;
};
Signature encoderSignature(const Type& type);
Signature decoderSignature(const Type& type);

/// The member of a string's record that counts its items.
const char* countMember(const Type& string);

/// The name of the constant for a presence bit or a CHOICE alternative.
std::string presenceName(const Type& sequence, const Component& component);
std::string alternativeName(const Type& choice, const Component& component);

/// The name of the constant for an item of an ENUMERATED.
std::string itemName(const Type& enumerated, const std::string& item);

/// The type in ASN.1 notation, components left out.
std::string typeNotation(const Type& type);

/// The kind as the enumerations of the generated tables call it.
const char* kindName(Kind kind);

/// A NULL has no member and no code.
bool isNull(const Type& type);

/// The value of a member, element or argument as C++ sees it.
class ValueRef {
public:
    static ValueRef object(std::string expression) { return {std::move(expression), false}; }
    static ValueRef pointer(std::string expression) { return {std::move(expression), true}; }

    std::string address() const { return isPointer ? expression : "&" + expression; }
    std::string get() const { return isPointer ? "*" + expression : expression; }
    std::string member(const std::string& name) const {
        return expression + (isPointer ? "->" : ".") + name;
    }

private:
    ValueRef(std::string expression, bool isPointer)
        : expression(std::move(expression)), isPointer(isPointer) {}

    std::string expression;
    bool isPointer;
};

/// The arguments behind the context with which a value goes to its encoder.
std::vector<std::string> valueArguments(const Type& type, const ValueRef& value);

} // namespace asn1gen
