#include "asn1gen/parser.h"

#include <algorithm>
#include <array>
#include <limits>

#include "asn1gen/token_reader.h"

namespace asn1gen {
namespace {

constexpr std::array<std::string_view, 5> characterStrings = {
    "IA5String", "NumericString", "PrintableString", "GeneralString", "BMPString"};

class Parser : private TokenReader {
public:
    using TokenReader::TokenReader;

    std::vector<ModuleSyntax> run() {
        std::vector<ModuleSyntax> modules;
        do {
            modules.push_back(module());
        } while (peek().kind != TokenKind::End);
        return modules;
    }

private:
    // Modules.

    ModuleSyntax module() {
        ModuleSyntax result;
        result.position = peek().position;
        result.name = moduleName();
        expect("DEFINITIONS");
        tagging();
        expect("::=");
        expect("BEGIN");
        exports();
        result.imports = imports();
        while (!accept("END")) {
            result.assignments.push_back(assignment());
        }
        return result;
    }

    std::string moduleName() {
        std::string name = expectWord(TokenKind::UpperWord, "a module name");
        if (at("{")) {
            throw SourceError(peek().position, "a module's object identifier is not supported");
        }
        return name;
    }

    // Only automatic tagging lets the order of the text decide the index of a CHOICE's
    // alternatives (X.691 23.2 goes by tags).
    void tagging() {
        if (!at("AUTOMATIC")) {
            failExpected("\"AUTOMATIC TAGS\" (other tagging is not supported)");
        }
        take();
        expect("TAGS");
    }

    // Every type of a module can be used by others, so the list itself changes nothing.
    void exports() {
        if (!accept("EXPORTS")) {
            return;
        }
        while (!accept(";")) {
            if (peek().kind == TokenKind::End) {
                failExpected("\";\" after EXPORTS");
            }
            take();
        }
    }

    std::vector<ImportSyntax> imports() {
        std::vector<ImportSyntax> result;
        if (!accept("IMPORTS")) {
            return result;
        }
        while (!accept(";")) {
            ImportSyntax import;
            do {
                import.names.push_back(
                    expectWord(TokenKind::UpperWord, "the name of an imported type"));
                if (accept("{")) {
                    expect("}");
                }
            } while (accept(","));
            if (!accept("FROM")) {
                failExpected("\",\" or \"FROM\" in the IMPORTS, which end with \";\"");
            }
            import.position = peek().position;
            import.module = moduleName();
            result.push_back(std::move(import));
        }
        return result;
    }

    AssignmentSyntax assignment() {
        AssignmentSyntax result;
        result.position = peek().position;
        if (peek().kind == TokenKind::LowerWord && peek(1).text != "::=") {
            throw SourceError(peek().position,
                              "the value assignment of \"" + peek().text + "\" is not supported");
        }
        result.name = expectWord(TokenKind::UpperWord,
                                 "a type name, which begins with a capital, or \"END\"");
        if (accept("{")) {
            do {
                result.parameters.push_back(
                    expectWord(TokenKind::UpperWord, "the name of a type parameter"));
            } while (accept(","));
            expect("}");
        }
        expect("::=");
        result.type = type();
        return result;
    }

    // Types.

    TypeSyntaxPtr type() {
        auto result = std::make_unique<TypeSyntax>();
        result->position = peek().position;
        if (at("[")) {
            throw SourceError(peek().position, "an explicit tag is not supported");
        }
        bareType(*result);
        while (at("(")) {
            constraint(*result);
        }
        if (at("SIZE") || at("FROM")) {
            throw SourceError(peek().position, peek().text + " stands between parentheses: (" +
                                                   peek().text + " (...))");
        }
        return result;
    }

    void bareType(TypeSyntax& result) {
        if (!atKnownWord(TokenKind::UpperWord)) {
            failExpected("a type");
        }
        const std::string word = take().text;
        if (word == "BOOLEAN") {
            result.kind = SyntaxKind::Boolean;
        } else if (word == "NULL") {
            result.kind = SyntaxKind::Null;
        } else if (word == "INTEGER" || word == "BIT" || word == "OCTET") {
            integerOrString(word, result);
        } else if (word == "ENUMERATED") {
            result.kind = SyntaxKind::Enumerated;
            enumeration(result);
        } else if (word == "OBJECT") {
            expect("IDENTIFIER");
            result.kind = SyntaxKind::ObjectIdentifier;
        } else if (word == "SEQUENCE" || word == "SET") {
            sequenceOrList(word, result);
        } else if (word == "CHOICE") {
            result.kind = SyntaxKind::Choice;
            components(result);
        } else if (word == "TYPE-IDENTIFIER") {
            expect(".");
            expect("&");
            expect("Type");
            result.kind = SyntaxKind::OpenType;
        } else if (std::find(characterStrings.begin(), characterStrings.end(), word) !=
                   characterStrings.end()) {
            result.kind = SyntaxKind::CharacterString;
            result.name = word;
        } else {
            reference(word, result);
        }
    }

    void integerOrString(const std::string& word, TypeSyntax& result) {
        if (word == "INTEGER") {
            result.kind = SyntaxKind::Integer;
        } else {
            expect("STRING");
            result.kind = word == "BIT" ? SyntaxKind::BitString : SyntaxKind::OctetString;
        }
        if (at("{")) {
            throw SourceError(peek().position, "named numbers and named bits are not supported");
        }
    }

    void reference(const std::string& word, TypeSyntax& result) {
        result.kind = SyntaxKind::Reference;
        result.name = word;
        if (at(".")) {
            throw SourceError(peek().position,
                              "only TYPE-IDENTIFIER.&Type is supported as a field of a class");
        }
        if (!accept("{")) {
            return;
        }
        do {
            result.arguments.push_back(type());
        } while (accept(","));
        expect("}");
    }

    void sequenceOrList(const std::string& word, TypeSyntax& result) {
        if (at("{")) {
            if (word == "SET") {
                throw SourceError(result.position, "SET is not supported (SET OF is)");
            }
            result.kind = SyntaxKind::Sequence;
            components(result);
            return;
        }
        result.kind = SyntaxKind::List;
        result.setOf = word == "SET";
        if (at("(") && peek(1).kind == TokenKind::UpperWord) {
            constraint(result);
        } else if (at("SIZE")) {
            result.constraints.size = size();
        }
        if (!at("OF")) {
            failExpected("\"{\", \"(SIZE\" or \"OF\" after " + word);
        }
        take();
        result.element = type();
    }

    // The list of a SEQUENCE or CHOICE, braces included.
    void components(TypeSyntax& result) {
        expect("{");
        if (accept("}")) {
            return;
        }
        do {
            if (at("...")) {
                if (result.extensible) {
                    throw SourceError(peek().position,
                                      "a second extension marker is not supported");
                }
                take();
                if (at("!")) {
                    throw SourceError(peek().position, "an exception value is not supported");
                }
                result.extensible = true;
            } else {
                auto& list = result.extensible ? result.additions : result.root;
                list.push_back(component(result.kind));
            }
        } while (accept(","));
        endOfList();
    }

    void endOfList() {
        if (!accept("}")) {
            failExpected("\",\" or \"}\"");
        }
    }

    ComponentSyntax component(SyntaxKind owner) {
        ComponentSyntax result;
        if (at("[[")) {
            throw SourceError(peek().position, "an extension addition group is not supported");
        }
        result.position = peek().position;
        result.name = expectWord(TokenKind::LowerWord,
                                 "a component name, which begins with a small letter, or \"...\"");
        result.type = type();
        if (owner == SyntaxKind::Choice && at("OPTIONAL")) {
            throw SourceError(peek().position, "an alternative of a CHOICE cannot be OPTIONAL");
        }
        result.optional = accept("OPTIONAL");
        return result;
    }

    // The items of an ENUMERATED, braces included.
    void enumeration(TypeSyntax& result) {
        expect("{");
        do {
            if (at("...")) {
                if (result.extensible) {
                    failExpected("an item; a second extension marker is not supported");
                }
                take();
                result.extensible = true;
                continue;
            }
            EnumerationItem item;
            item.position = peek().position;
            item.name = expectWord(TokenKind::LowerWord, "the name of an item");
            if (accept("(")) {
                item.number = number("the number of an item");
                expect(")");
            }
            (result.extensible ? result.addedItems : result.items).push_back(std::move(item));
        } while (accept(","));
        endOfList();
    }

    // Constraints.

    void constraint(TypeSyntax& type) {
        const Position position = peek().position;
        expect("(");
        Constraints inside;
        do {
            inside.intersect(constraintElement(type), position);
        } while (accept("^") || accept("INTERSECTION"));
        if (at("|") || at("UNION")) {
            throw SourceError(peek().position, "a union of constraints is not supported");
        }
        if (accept(",")) {
            expect("...");
            if (at(",")) {
                throw SourceError(peek().position,
                                  "values behind the extension marker of a constraint are not "
                                  "supported");
            }
            extend(inside, position);
        }
        expect(")");
        type.constraints.intersect(inside, position);
    }

    static void extend(Constraints& constraints, const Position& position) {
        if (constraints.size) {
            throw SourceError(position, "an extensible SIZE constraint is not supported");
        }
        if (constraints.alphabet) {
            throw SourceError(position, "an extensible FROM constraint is not supported");
        }
        if (constraints.values) {
            constraints.values->extensible = true;
        }
    }

    Constraints constraintElement(TypeSyntax& type) {
        Constraints result;
        if (at("SIZE")) {
            result.size = size();
        } else if (accept("FROM")) {
            result.alphabet = alphabet();
        } else if (accept("WITH")) {
            innerConstraint();
        } else if (accept("CONSTRAINED")) {
            expect("BY");
            skipBraces();
        } else if (type.kind == SyntaxKind::OpenType) {
            this->type();
        } else {
            result.values = range("a value");
        }
        return result;
    }

    Range size() {
        const Position position = peek().position;
        expect("SIZE");
        expect("(");
        const Range result = range("a size");
        if (at(",")) {
            throw SourceError(position, "an extensible SIZE constraint is not supported");
        }
        if (result.lower < 0) {
            throw SourceError(position, "a size cannot be negative");
        }
        expect(")");
        return result;
    }

    std::string alphabet() {
        expect("(");
        if (peek().kind != TokenKind::String) {
            failExpected("a string of the permitted characters");
        }
        std::string characters = take().text;
        if (at("..")) {
            throw SourceError(peek().position,
                              "a range of characters is not supported: list all of them");
        }
        expect(")");
        return characters;
    }

    // WITH COMPONENTS says which values a sender chooses; it is not PER-visible (X.691 10.3.7)
    // and leaves the encoding as it is.
    void innerConstraint() {
        expect("COMPONENTS");
        skipBraces();
    }

    void skipBraces() {
        expect("{");
        for (int depth = 1; depth > 0;) {
            if (peek().kind == TokenKind::End) {
                failExpected("\"}\"");
            }
            const Token& token = take();
            depth += token.text == "{" ? 1 : token.text == "}" ? -1 : 0;
        }
    }

    Range range(const std::string& what) {
        Range result;
        const Position position = peek().position;
        result.lower = accept("MIN") ? Range::least : number(what);
        result.upper = result.lower;
        if (accept("..")) {
            result.upper = accept("MAX") ? Range::greatest : number(what);
        }
        if (result.upper < result.lower) {
            throw SourceError(position, "the upper bound is below the lower bound");
        }
        if (at("|")) {
            throw SourceError(peek().position, "a union of constraints is not supported");
        }
        return result;
    }

    int64_t number(const std::string& what) {
        const bool negative = accept("-");
        if (peek().kind == TokenKind::LowerWord) {
            throw SourceError(peek().position,
                              "a reference to a value is not supported: write the number that \"" +
                                  peek().text + "\" stands for");
        }
        if (peek().kind != TokenKind::Number) {
            failExpected(what);
        }
        const Token& token = take();
        int64_t result = 0;
        for (const char digit : token.text) {
            if (result > (std::numeric_limits<int64_t>::max() - 9) / 10) {
                throw SourceError(token.position, "the number " + token.text + " is too large");
            }
            result = result * 10 + (digit - '0');
        }
        return negative ? -result : result;
    }
};

} // namespace

std::vector<ModuleSyntax> parseModules(std::string_view text, const std::string& fileName) {
    return Parser(text, fileName).run();
}

} // namespace asn1gen
