#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "asn1gen/diagnostics.h"

namespace asn1gen {

enum class TokenKind {
    UpperWord, ///< a type reference, module name or keyword: begins with a capital
    LowerWord, ///< an identifier: begins with a small letter
    Number,    ///< digits only; a minus sign is a symbol of its own
    String,    ///< text holds the characters between the quotes
    Symbol,    ///< ::= { } ( ) [ ] [[ ]] , ; . .. ... | & - : < > @ ! ^
    End,
};

struct Token {
    TokenKind kind;
    std::string text;
    Position position;
};

/// The token as it is shown in an error message.
std::string describe(const Token& token);

/// Splits ASN.1 text (X.680 clause 12) into tokens; comments of both forms are dropped.
/// The last token is always of kind End. Throws SourceError at a character that no token begins
/// with, and at a string or block comment without an end.
std::vector<Token> tokenize(std::string_view text, const std::string& fileName);

} // namespace asn1gen
