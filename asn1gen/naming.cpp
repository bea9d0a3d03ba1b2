#include "asn1gen/naming.h"

#include <algorithm>
#include <set>

namespace asn1gen {
namespace {

const std::set<std::string> cppKeywords = {
    "and",      "auto",     "bool",     "break",   "case",    "catch",     "char",      "class",
    "concept",  "const",    "continue", "default", "delete",  "do",        "double",    "else",
    "enum",     "explicit", "export",   "extern",  "false",   "float",     "for",       "friend",
    "goto",     "if",       "inline",   "int",     "long",    "mutable",   "namespace", "new",
    "not",      "nullptr",  "operator", "or",      "private", "protected", "public",    "register",
    "requires", "return",   "short",    "signed",  "sizeof",  "static",    "struct",    "switch",
    "template", "this",     "throw",    "true",    "try",     "typedef",   "typeid",    "typename",
    "union",    "unsigned", "using",    "virtual", "void",    "volatile",  "while",     "xor"};

} // namespace

std::string cName(const std::string& asn1Name) {
    std::string result = asn1Name;
    std::replace(result.begin(), result.end(), '-', '_');
    return result;
}

std::string memberName(const std::string& identifier) {
    std::string result = cName(identifier);
    if (cppKeywords.count(result) != 0) {
        result += '_';
    }
    return result;
}

std::string listName(const std::string& prefix, bool setOf, const std::string& elementName) {
    return prefix + (setOf ? "_SetOf" : "_SeqOf") + elementName;
}

} // namespace asn1gen
