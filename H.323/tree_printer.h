// Prints any decoded value as an indented tree, driven by the type tables.
#pragma once

#include <string>

#include "H.323/type_description.h"

// One line for each field, two spaces deeper for each level, absent fields left out:
//
//     H225TransportAddress: ipAddress
//       ip: c0a80102 (192.168.1.2)
//       port: 1720
//
// A CHOICE names its alternative and the fields of the alternative stand below it; a list gives its
// number of elements. Text in the value is printed in quotes with everything but printable ASCII
// escaped. `value` is a decoded value of `type`; `name` stands in the first line.
std::string printTree(const TypeDescription& type, const void* value, const std::string& name);
