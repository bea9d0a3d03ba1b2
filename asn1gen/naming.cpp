#include "asn1gen/naming.h"

#include <algorithm>
#include <set>

namespace asn1gen {
namespace {

// Keywords, and names that the generated code uses without a record in front of them.
const std::set<std::string> cppKeywords = {"alignas",      "alignof",
                                           "and",          "and_eq",
                                           "asm",          "assert",
                                           "auto",         "bitand",
                                           "bitor",        "bool",
                                           "break",        "case",
                                           "catch",        "char",
                                           "char8_t",      "char16_t",
                                           "char32_t",     "class",
                                           "co_await",     "co_return",
                                           "co_yield",     "compl",
                                           "concept",      "const",
                                           "const_cast",   "consteval",
                                           "constexpr",    "constinit",
                                           "continue",     "decltype",
                                           "default",      "delete",
                                           "do",           "double",
                                           "dynamic_cast", "else",
                                           "enum",         "errno",
                                           "explicit",     "export",
                                           "extern",       "false",
                                           "float",        "for",
                                           "friend",       "goto",
                                           "if",           "inline",
                                           "int",          "int16_t",
                                           "int32_t",      "int64_t",
                                           "int8_t",       "long",
                                           "mutable",      "namespace",
                                           "new",          "noexcept",
                                           "not",          "not_eq",
                                           "nullptr",      "offsetof",
                                           "operator",     "or",
                                           "or_eq",        "private",
                                           "protected",    "public",
                                           "register",     "reinterpret_cast",
                                           "requires",     "return",
                                           "short",        "signed",
                                           "size_t",       "sizeof",
                                           "static",       "static_assert",
                                           "static_cast",  "struct",
                                           "switch",       "template",
                                           "this",         "thread_local",
                                           "throw",        "true",
                                           "try",          "typedef",
                                           "typeid",       "typename",
                                           "uint16_t",     "uint32_t",
                                           "uint64_t",     "uint8_t",
                                           "union",        "unsigned",
                                           "using",        "virtual",
                                           "void",         "volatile",
                                           "wchar_t",      "while",
                                           "xor",          "xor_eq"};

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
