#include "asn1gen/token_reader.h"

#include <algorithm>

namespace asn1gen {
namespace {

// Valid ASN.1 that this generator does not know. It is named in the error instead of being
// reported as a mere syntax error or, worse, taken for the name of a type.
constexpr std::string_view unknownNotation[] = {
    "REAL",
    "EXTERNAL",
    "EMBEDDED",
    "VisibleString",
    "RELATIVE-OID",
    "UTF8String",
    "UniversalString",
    "TeletexString",
    "T61String",
    "VideotexString",
    "GraphicString",
    "ISO646String",
    "GeneralizedTime",
    "UTCTime",
    "ObjectDescriptor",
    "CHARACTER",
    "ANY",
    "CLASS",
    "INSTANCE",
    "COMPONENTS",
    "DEFAULT",
    "UNION",
    "INTERSECTION",
    "EXCEPT",
    "ALL",
    "INCLUDES",
    "PATTERN",
    "CONTAINING",
    "ENCODED",
};

// Words that begin with a capital and name neither a type nor a module (X.680 11.27).
constexpr std::string_view keywords[] = {
    "ABSENT", "AUTOMATIC", "BEGIN",    "BY",      "DEFINITIONS", "END",  "EXPORTS",
    "FALSE",  "FROM",      "IMPLICIT", "IMPORTS", "EXPLICIT",    "MAX",  "MIN",
    "OF",     "OPTIONAL",  "PRESENT",  "SIZE",    "TAGS",        "TRUE", "WITH"};

template <size_t N> bool isOneOf(const std::string_view (&words)[N], const std::string& word) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

} // namespace

const Token& TokenReader::peek(size_t ahead) const {
    return tokens[std::min(cursor + ahead, tokens.size() - 1)];
}

const Token& TokenReader::take() {
    const Token& token = peek();
    if (cursor + 1 < tokens.size()) {
        ++cursor;
    }
    return token;
}

bool TokenReader::at(std::string_view text) const {
    return peek().kind != TokenKind::String && peek().text == text;
}

bool TokenReader::accept(std::string_view text) {
    const bool found = at(text);
    if (found) {
        take();
    }
    return found;
}

bool TokenReader::atKnownWord(TokenKind kind) const {
    return peek().kind == kind && !isOneOf(unknownNotation, peek().text) &&
           !isOneOf(keywords, peek().text);
}

void TokenReader::expect(std::string_view text) {
    if (!accept(text)) {
        failExpected("\"" + std::string(text) + "\"");
    }
}

std::string TokenReader::expectWord(TokenKind kind, const std::string& what) {
    if (!atKnownWord(kind)) {
        failExpected(what);
    }
    return take().text;
}

void TokenReader::failExpected(const std::string& expected) const {
    const Token& token = peek();
    if (token.kind == TokenKind::UpperWord && isOneOf(unknownNotation, token.text)) {
        throw SourceError(token.position, token.text + " is not supported");
    }
    throw SourceError(token.position, "expected " + expected + ", found " + describe(token));
}

} // namespace asn1gen
