#include "cli/places_check.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "cli/located_addresses.h"

namespace cli {

std::string placesFaultOf(const VectorLine& line) {
    const auto type = locatedTypeNamed(line.type);
    if (!type) {
        return "addresses are not looked up in this type";
    }
    if (line.third.empty()) {
        return "expected PATH=OFFSET,... or - behind the encoding";
    }
    std::vector<std::string> expected;
    if (line.third != "-") {
        std::istringstream list(line.third);
        for (std::string place; std::getline(list, place, ',');) {
            expected.push_back(place);
        }
    }
    std::vector<std::string> found;
    const LocatedAddresses located = locateAddresses(*type, line.encoding);
    for (const LocatedAddress& place : located.places) {
        found.push_back(place.path + "=" + std::to_string(place.offset));
    }
    const auto [listed, seen] =
        std::mismatch(expected.begin(), expected.end(), found.begin(), found.end());
    if (listed != expected.end()) {
        return "lists " + *listed + ", found " + (seen == found.end() ? "nothing more" : *seen);
    }
    if (seen != found.end()) {
        return "found " + *seen + ", which is not listed there";
    }
    return located.status == LocateStatus::complete ? "" : "makes no sense from some point on";
}

} // namespace cli
