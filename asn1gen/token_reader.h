#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "asn1gen/lexer.h"

namespace asn1gen {

/// The tokens of a file, front to back. Behind the last one stands that of the end, again and
/// again.
class TokenReader {
public:
    /// Throws SourceError as tokenize does.
    TokenReader(std::string_view text, const std::string& fileName)
        : tokens(tokenize(text, fileName)) {}

    const Token& peek(size_t ahead = 0) const;
    const Token& take();

    bool at(std::string_view text) const;
    bool accept(std::string_view text);

    /// Whether the next token is a word of this kind that is neither a keyword without meaning of
    /// its own nor notation unknown to the generator.
    bool atKnownWord(TokenKind kind) const;

    /// Throw SourceError, which names unknown notation as such, when something else is next.
    void expect(std::string_view text);
    std::string expectWord(TokenKind kind, const std::string& what);
    [[noreturn]] void failExpected(const std::string& expected) const;

private:
    std::vector<Token> tokens;
    size_t cursor = 0;
};

} // namespace asn1gen
