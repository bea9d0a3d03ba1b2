#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "asn1gen/diagnostics.h"

namespace asn1gen {

/// One line of a list of places, what the locator is to tell or to know.
struct LocateEntry {
    enum class Verb {
        Root,        ///< name, type
        Inside,      ///< path, type: the octet string is a message of that type
        Address,     ///< type: a SEQUENCE of an IPv4 address and a port
        Part,        ///< type: part of an address
        Octets,      ///< name of the kind, path
        Number,      ///< the same
        String,      ///< the same
        Alternative, ///< the same
        Presence,    ///< the same
    };

    Verb verb;
    std::string name;                 ///< of the root or the kind
    std::string type;                 ///< where the path begins; "*" is any type
    std::vector<std::string> members; ///< path below it; "*" is any member
    std::string target;               ///< type named last
    Position position;
};

/// Reads the list: a verb and its words a line, "#" begins a comment. Throws SourceError.
std::vector<LocateEntry> parseLocateList(std::string_view text, const std::string& fileName);

} // namespace asn1gen
