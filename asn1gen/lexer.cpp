#include "asn1gen/lexer.h"

#include <array>
#include <cctype>

namespace asn1gen {
namespace {

bool isLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}
bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}
bool isUpper(char c) {
    return std::isupper(static_cast<unsigned char>(c)) != 0;
}

// The longest symbols stand first, so that "..." is not read as ".." and ".".
constexpr std::array<std::string_view, 24> symbols = {
    "::=", "...", "..", "[[", "]]", "{", "}", "(", ")", "[", "]", ",",
    ";",   ".",   "|",  "&",  "-",  ":", "<", ">", "@", "!", "^", "*"};

// Quotes and dashes of word processors have several octets, none of which is a character.
std::string shown(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto octet = static_cast<unsigned char>(c);
    if (std::isprint(octet) != 0) {
        return std::string("character '") + c + "'";
    }
    return std::string("octet 0x") + digits[octet >> 4] + digits[octet & 15] +
           ", which is not ASCII";
}

class Lexer {
public:
    Lexer(std::string_view text, const std::string& fileName)
        : text(text), file(std::make_shared<const std::string>(fileName)) {}

    std::vector<Token> run() {
        std::vector<Token> tokens;
        skipBlanks();
        while (cursor < text.size()) {
            tokens.push_back(next());
            skipBlanks();
        }
        tokens.push_back({TokenKind::End, "", here()});
        return tokens;
    }

private:
    Position here() const { return {file, line}; }

    bool startsWith(std::string_view prefix) const {
        return text.substr(cursor, prefix.size()) == prefix;
    }

    void advance(size_t count) {
        for (size_t i = 0; i < count && cursor < text.size(); ++i, ++cursor) {
            if (text[cursor] == '\n') {
                ++line;
            }
        }
    }

    void skipBlanks() {
        while (cursor < text.size()) {
            if (std::isspace(static_cast<unsigned char>(text[cursor])) != 0) {
                advance(1);
            } else if (startsWith("--")) {
                skipLineComment();
            } else if (startsWith("/*")) {
                skipBlockComment();
            } else {
                return;
            }
        }
    }

    // A comment that begins with two hyphens ends with the line or with two further hyphens.
    void skipLineComment() {
        advance(2);
        while (cursor < text.size() && text[cursor] != '\n') {
            if (startsWith("--")) {
                advance(2);
                return;
            }
            advance(1);
        }
    }

    void skipBlockComment() {
        const Position start = here();
        int depth = 0;
        do {
            if (startsWith("/*")) {
                ++depth;
                advance(2);
            } else if (startsWith("*/")) {
                --depth;
                advance(2);
            } else if (cursor == text.size()) {
                throw SourceError(start,
                                  "the comment that begins here has no end; expected \"*/\"");
            } else {
                advance(1);
            }
        } while (depth > 0);
    }

    Token next() {
        const char first = text[cursor];
        if (isLetter(first)) {
            return word();
        }
        if (isDigit(first)) {
            return number();
        }
        if (first == '"') {
            return string();
        }
        for (const std::string_view symbol : symbols) {
            if (startsWith(symbol)) {
                Token token{TokenKind::Symbol, std::string(symbol), here()};
                advance(symbol.size());
                return token;
            }
        }
        throw SourceError(here(), "unexpected " + shown(first) +
                                      "; expected an ASN.1 name, number, string or symbol");
    }

    Token word() {
        const Position start = here();
        const size_t begin = cursor;
        while (cursor < text.size()) {
            const char c = text[cursor];
            const bool hyphen = c == '-' && cursor + 1 < text.size() &&
                                (isLetter(text[cursor + 1]) || isDigit(text[cursor + 1]));
            if (!isLetter(c) && !isDigit(c) && !hyphen) {
                break;
            }
            ++cursor;
        }
        const std::string name(text.substr(begin, cursor - begin));
        return {isUpper(name[0]) ? TokenKind::UpperWord : TokenKind::LowerWord, name, start};
    }

    Token number() {
        const Position start = here();
        const size_t begin = cursor;
        while (cursor < text.size() && isDigit(text[cursor])) {
            ++cursor;
        }
        return {TokenKind::Number, std::string(text.substr(begin, cursor - begin)), start};
    }

    Token string() {
        const Position start = here();
        std::string content;
        advance(1);
        while (cursor < text.size()) {
            if (startsWith("\"\"")) {
                content += '"';
                advance(2);
            } else if (text[cursor] == '"') {
                advance(1);
                return {TokenKind::String, content, start};
            } else if (text[cursor] == '\n') {
                throw SourceError(start, "a string over several lines is not supported");
            } else {
                content += text[cursor];
                advance(1);
            }
        }
        throw SourceError(start, "the string that begins here has no end; expected '\"'");
    }

    std::string_view text;
    std::shared_ptr<const std::string> file;
    size_t cursor = 0;
    int line = 1;
};

} // namespace

std::string describe(const Token& token) {
    switch (token.kind) {
    case TokenKind::End:
        return "the end of the file";
    case TokenKind::String:
        return "the string \"" + token.text + "\"";
    default:
        return "\"" + token.text + "\"";
    }
}

std::vector<Token> tokenize(std::string_view text, const std::string& fileName) {
    return Lexer(text, fileName).run();
}

} // namespace asn1gen
