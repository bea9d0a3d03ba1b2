#pragma once

#include <string>
#include <string_view>

// Text of packets and files inside HTML and SVG.
namespace report {

// Valid UTF-8 whatever the octets; those that are none become U+FFFD.
std::string validText(const std::string& text);

// The text as content or between quotes of an attribute.
std::string escaped(std::string_view text);

// JSON inside a script element, where "</script>" and "<!--" would end or change it.
std::string scriptData(const std::string& json);

} // namespace report
