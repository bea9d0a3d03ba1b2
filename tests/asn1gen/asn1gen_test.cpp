// The generator: what it refuses and how it says so, names and layout of types that the H.323
// modules do not have, and that its output does not depend on anything but its input.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "asn1gen/codec_limits.h"
#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"
#include "asn1gen/memory_bound.h"
#include "asn1gen/name_check.h"
#include "asn1gen/parser.h"
#include "asn1gen/resolver.h"

namespace asn1gen {
namespace {

Model modelOf(const std::string& text) {
    const auto syntax = parseModules(text, "test.asn");
    std::map<std::string, ModuleOptions> options;
    for (const ModuleSyntax& module : syntax) {
        options[module.name] = {"X", true, module.name};
    }
    Model model = resolve(syntax, options);
    layOut(model);
    checkCodecLimits(model);
    checkNames(model);
    return model;
}

std::string moduleOf(const std::string& body) {
    return "M DEFINITIONS AUTOMATIC TAGS ::=\nBEGIN\n" + body + "\nEND\n";
}

std::vector<std::string> namesIn(const std::string& body, bool withFunctions = true) {
    std::vector<std::string> names;
    const Model model = modelOf(moduleOf(body));
    for (const Type* type : model.modules.back()->types) {
        if (type->hasFunctions == withFunctions) {
            names.push_back(type->name);
        }
    }
    return names;
}

std::string errorOf(const std::string& text) {
    try {
        modelOf(text);
    } catch (const SourceError& error) {
        return error.what();
    }
    return "no error";
}

struct Refusal {
    const char* body; // begins in line 3 of the module
    const char* error;
};

constexpr Refusal refusals[] = {
    {"A ::= ENUMERATED { a (1), b (1) }", "test.asn:3: error: the number of b is taken already"},
    {"A ::= ENUMERATED { a, ..., a }", "test.asn:3: error: a is defined twice"},
    {"A ::= ENUMERATED { ..., a }", "test.asn:3: error: an ENUMERATED needs an item"},
    {"A ::= SEQUENCE {\n  a INTEGER DEFAULT 1\n}", "test.asn:4: error: DEFAULT is not supported"},
    {"A ::= SET { a NULL }", "test.asn:3: error: SET is not supported (SET OF is)"},
    {"A ::= [1] INTEGER", "test.asn:3: error: an explicit tag is not supported"},
    {"A ::= SEQUENCE { a NULL, ..., b NULL, ... }",
     "test.asn:3: error: a second extension marker is not supported"},
    {"A ::= SEQUENCE { ..., [[ a NULL ]] }",
     "test.asn:3: error: an extension addition group is not supported"},
    {"A ::= SEQUENCE { a B }",
     "test.asn:3: error: the type B is not defined in module M and not imported"},
    {"A ::= INTEGER (1..)", "test.asn:3: error: expected a value, found \")\""},
    {"A ::= INTEGER (5..1)", "test.asn:3: error: the upper bound is below the lower bound"},
    {"A ::= INTEGER (0..MAX)", "test.asn:3: error: XA has a lower bound alone"},
    {"A ::= OCTET STRING (SIZE (1..MAX))", "test.asn:3: error: XA has a least size alone"},
    {"A ::= INTEGER (-2147483648..0)", "test.asn:3: error: XA has a signed range of 2^31 values"},
    {"A ::= SEQUENCE {\n a INTEGER (0..4294967295, ...) }",
     "test.asn:4: error: INTEGER (0..4294967295, ...) has an extension marker behind a bound"},
    {"A ::= INTEGER (0..5)\n  (6..7)", "test.asn:4: error: the constraints leave nothing"},
    {"A ::= IA5String (FROM (\"ab\") ^ FROM (\"cd\"))",
     "test.asn:3: error: the FROM constraints have no character in common"},
    {"A ::= NumericString (FROM (\"abc\"))",
     "test.asn:3: error: FROM leaves no character that NumericString has"},
    {"A ::= INTEGER (0..4294967296)", "test.asn:3: error: the range needs more than 32 bits"},
    {"A ::= INTEGER (1|3)", "test.asn:3: error: a union of constraints is not supported"},
    {"A ::= OCTET STRING (SIZE (1..4, ...))",
     "test.asn:3: error: an extensible SIZE constraint is not supported"},
    {"A ::= B (SIZE (1..2))\nB ::= SEQUENCE OF NULL",
     "test.asn:3: error: a constraint on the reference to B is not supported"},
    {"A ::= IA5String (FROM (\"xyz\"))",
     "test.asn:3: error: XA permits \"x\", which the runtime's IA5String does not have"},
    {"A ::= SEQUENCE { b SEQUENCE { } }\nA-b ::= NULL2\nNULL2 ::= BOOLEAN",
     "test.asn:4: error: the C++ name XA_b of a type is that of a type in test.asn:3 too"},
    {"A ::= CHOICE { b NULL, ... }\nA-bChosen ::= BOOLEAN",
     "test.asn:4: error: the C++ name XA_bChosen of a type is that of the constant for b in"},
    {"MemoryPerOctet ::= BOOLEAN",
     "test.asn:3: error: the C++ name XMemoryPerOctet of a type is that of module M in test.asn:1"},
    {"A ::= IA5String (FROM (\"a\nb\"))", "test.asn:3: error: a string over several lines"},
    {"A {P} ::= SEQUENCE { p P, a A {P} OPTIONAL }\nB ::= A {NULL}",
     "test.asn:3: error: A contains itself by its parameters, without end"},
    {"A ::= B\nB ::= A", "test.asn:3: error: A is defined by nothing but itself"},
    {"A ::= B (1..2)\nB ::= A", "test.asn:3: error: a constraint on the reference to B"},
    {"A ::= SEQUENCE { a NULL", "test.asn:4: error: expected \",\" or \"}\", found \"END\""},
    {"A ::= SEQUENCE {\n a NULL\n b NULL }",
     "test.asn:5: error: expected \",\" or \"}\", found \"b\""},
    {"A ::= SEQUENCE OF", "test.asn:4: error: expected a type, found \"END\""},
    {"A ::= BOOLEAN OPTIONAL",
     "test.asn:3: error: expected a type name, which begins with a capital, or \"END\", found "
     "\"OPTIONAL\""},
    {"A ::= SEQUENCE (\n a NULL )",
     "test.asn:3: error: expected \"{\", \"(SIZE\" or \"OF\" after SEQUENCE, found \"(\""},
    {"A ::= IA5String SIZE (1..5)", "test.asn:3: error: SIZE stands between parentheses"},
    {"A ::= IA5String (FROM (\"A\"..\"Z\"))",
     "test.asn:3: error: a range of characters is not supported: list all of them"},
    {"A ::= CHOICE { a NULL OPTIONAL }",
     "test.asn:3: error: an alternative of a CHOICE cannot be OPTIONAL"},
    {"A ::= INTEGER (0..most)",
     "test.asn:3: error: a reference to a value is not supported: write the number that \"most\""},
    {"A ::= INTEGER (0..5, ..., 6..9)",
     "test.asn:3: error: values behind the extension marker of a constraint are not supported"},
    {"report ::= SEQUENCE { }",
     "test.asn:3: error: expected a type name, which begins with a capital, or \"END\", found "
     "\"report\""},
    {"A ::= IA5String (FROM (\"0123\"))",
     "test.asn:3: error: XA permits 4 characters, which the runtime does not code as X.691 does"},
    {"A ::= IA5String (FROM (\xE2\x80\x9C"
     "0\xE2\x80\x9D))",
     "test.asn:3: error: unexpected octet 0xe2, which is not ASCII; expected an ASN.1 name"},
    {"A ::= SEQUENCE { a NULL, a NULL }", "test.asn:3: error: a is defined twice"},
    {"A ::= NULL\nA ::= NULL", "test.asn:4: error: A is defined twice"},
    {"a INTEGER ::= 3", "test.asn:3: error: the value assignment of \"a\" is not supported"},
    {"A ::= SEQUENCE { a A OPTIONAL }",
     "test.asn:3: error: XA contains itself other than through a list or CHOICE"},
    {"A {P} ::= SEQUENCE { p P }\nB ::= A", "test.asn:4: error: A takes 1 parameter(s), not 0"},
    {"A ::= \"text\"", "test.asn:3: error: expected a type, found the string \"text\""},
    {"A ::= #", "test.asn:3: error: unexpected character '#'"},
    {"/* open", "test.asn:3: error: the comment that begins here has no end"},
};

TEST(Refusals, NameFileLineAndWhatWasExpected) {
    for (const Refusal& refusal : refusals) {
        const std::string error = errorOf(moduleOf(refusal.body));
        EXPECT_EQ(error.substr(0, std::string(refusal.error).size()), refusal.error)
            << refusal.body << "\ngave " << error;
    }
    EXPECT_EQ(errorOf("M DEFINITIONS ::= BEGIN END"),
              "test.asn:1: error: expected \"AUTOMATIC TAGS\" (other tagging is not supported), "
              "found \"::=\"");
}

TEST(Names, OfTwoModulesWithOnePrefixClash) {
    const std::string empty = " DEFINITIONS AUTOMATIC TAGS ::=\nBEGIN END\n";
    EXPECT_NE(errorOf("M" + empty + "N" + empty)
                  .find("test.asn:3: error: the C++ name XMemoryPerOctet of module N is that of "
                        "module M in test.asn:1 too; another --prefix"),
              std::string::npos);
}

TEST(Imports, MustExistAndNotGoInCircles) {
    const std::string head = "DEFINITIONS AUTOMATIC TAGS ::=\nBEGIN IMPORTS ";
    EXPECT_EQ(errorOf("M " + head + "T FROM N; END"),
              "test.asn:2: error: module N is not among the files given");
    EXPECT_EQ(errorOf("M " + head + "T FROM N { 1 2 }; END"),
              "test.asn:2: error: a module's object identifier is not supported");
    EXPECT_EQ(errorOf("M " + head + "T FROM N\nA ::= T END"),
              "test.asn:3: error: expected \",\" or \"FROM\" in the IMPORTS, which end with \";\", "
              "found \"::=\"");
    const std::string other = " END N DEFINITIONS AUTOMATIC TAGS ::= BEGIN U ::= BOOLEAN END";
    EXPECT_EQ(errorOf("M " + head + "T FROM N;" + other),
              "test.asn:2: error: module N does not define T");
    for (const std::string twice : {"U FROM N U FROM N;", "U FROM N;\nU ::= NULL"}) {
        EXPECT_EQ(errorOf(("M " + head).append(twice).append(other)),
                  "test.asn:2: error: U is imported here and imported or defined elsewhere");
    }
    EXPECT_EQ(errorOf("M " + head + "T FROM N;\nA ::= T END\nN " + head + "A FROM M; T ::= A END"),
              "test.asn:5: error: module M imports from itself in a circle");
}

TEST(Names, FollowThePositionOfATypeAndItsElement) {
    EXPECT_EQ(
        namesIn("A ::= SEQUENCE {\n"
                "  first-one SEQUENCE (SIZE (1..2)) OF INTEGER (1..5),\n"
                "  two SET OF CHOICE { x NULL, y OCTET STRING (SIZE (2)) },\n"
                "  three SEQUENCE OF INTEGER (0..3),\n"
                "  four SEQUENCE OF OCTET STRING,\n"
                "  five SEQUENCE OF B,\n"
                "  six SEQUENCE OF B\n"
                "}\n"
                "B ::= BOOLEAN"),
        (std::vector<std::string>{"XA_first_one", "XA_two_element_y", "XA_two_element",
                                  "X_SetOfXA_two_element", "XA_three_element",
                                  "X_SeqOfXA_three_element", "XA_four", "XB", "X_SeqOfXB", "XA"}));
}

TEST(Names, ParametersThatOnlyConstrainShareOneInstance) {
    EXPECT_EQ(namesIn("Sealed {P} ::= SEQUENCE { data OCTET STRING } (CONSTRAINED BY { P })\n"
                      "Signed {P} ::= SEQUENCE { inner P }\n"
                      "A ::= SEQUENCE { a Sealed {B}, b Sealed {C}, c Signed {B}, d Signed {C} }\n"
                      "B ::= BOOLEAN\n"
                      "C ::= INTEGER"),
              (std::vector<std::string>{"XSealed", "XB", "XA_c", "XC", "XA_d", "XA"}));
}

TEST(Recursion, IsFoundAndItsListCodedByTheParent) {
    const std::string tree = "Tree ::= CHOICE { leaf NULL, nodes SEQUENCE (SIZE (1..4)) OF Tree }";
    EXPECT_EQ(namesIn(tree), (std::vector<std::string>{"XTree"}));
    EXPECT_EQ(namesIn(tree, false), (std::vector<std::string>{"XTree_nodes"}));
    const Model model = modelOf(moduleOf(tree));
    EXPECT_TRUE(model.modules.back()->types.back()->recursive);
}

TEST(Layout, LeastBitsOfATypeAreALowerBound) {
    const Model model = modelOf(moduleOf("A ::= SEQUENCE {\n"
                                         "  a BOOLEAN OPTIONAL, b INTEGER (0..7),\n"
                                         "  c OCTET STRING (SIZE (2..3)), d NULL,\n"
                                         "  e CHOICE { x BOOLEAN, y NULL, z INTEGER },\n"
                                         "  f SEQUENCE (SIZE (2..3)) OF BOOLEAN, ...\n"
                                         "}"));
    // Marker 1, presence 1, b 3, c 1 + 16, e 2 + 0, f 1 + 2.
    EXPECT_EQ(minimalBits(*model.modules.back()->types.back()), 27);
    // An addition takes 1 + 7 where an item of the root takes 1 + 8.
    std::string items;
    for (int i = 0; i < 150; ++i) {
        items += "i" + std::to_string(i) + ", ";
    }
    const Model many = modelOf(moduleOf("A ::= ENUMERATED { " + items + "... }"));
    EXPECT_EQ(minimalBits(*many.modules.back()->types.back()), 8);
}

TEST(MemoryBound, IsSetByTheRecordThatTakesTheFewestBits) {
    const auto boundOf = [](const std::string& body) {
        return memoryPerOctet(*modelOf(moduleOf(body)).modules.back());
    };
    // 4 + 100 octets for 7 + 8 bits: 55.5 for each octet.
    EXPECT_EQ(boundOf("A ::= SEQUENCE OF OCTET STRING (SIZE (1..100))"), 56);
    // 4 + 1000 octets, rounded up to 8, behind a pointer for 1 + 10 + 8 bits: 424.4.
    EXPECT_EQ(boundOf("A ::= CHOICE { a BOOLEAN, b OCTET STRING (SIZE (1..1000)) }"), 425);
    // Lists in lists, 16 octets for the 8 bits of an empty inner list, plus 8 to round up its own.
    EXPECT_GE(boundOf("A ::= SEQUENCE OF SEQUENCE OF BOOLEAN"), 16);
}

TEST(Layout, RefusesMorePresenceBitsThanAWordHolds) {
    std::string fields;
    for (int i = 0; i < 32; ++i) {
        fields += (i == 0 ? "a" : ", a") + std::to_string(i) + " BOOLEAN OPTIONAL";
    }
    EXPECT_NE(errorOf(moduleOf("A ::= SEQUENCE { " + fields + " }")).find("32 presence bits"),
              std::string::npos);
}

TEST(Output, DependsOnTheInputAlone) {
    const std::string text =
        moduleOf("A ::= SEQUENCE { default BOOLEAN, extension INTEGER (-5..5), ... }");
    const auto emit = [&] {
        const Model model = modelOf(text);
        return emitHeader(*model.modules[0], {""}) + emitSource(*model.modules[0], {""}) +
               emitRegistry(model, {""});
    };
    EXPECT_EQ(emit(), emit());
    EXPECT_NE(emit().find("uint8_t default_;"), std::string::npos);
    EXPECT_NE(emit().find("int32_t extension_;"), std::string::npos);
}

} // namespace
} // namespace asn1gen
