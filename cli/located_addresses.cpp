#include "cli/located_addresses.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "locator/path_names.h"

namespace cli {
namespace {

/// In the order of LocatedType.
constexpr std::string_view typeNames[] = {"H225H323_UserInformation", "H225RasMessage",
                                          "H245MultimediaSystemControlMessage",
                                          "H245OpenLogicalChannel"};

} // namespace

std::optional<LocatedType> locatedTypeNamed(std::string_view name) {
    const auto* found = std::find(std::begin(typeNames), std::end(typeNames), name);
    if (found == std::end(typeNames)) {
        return std::nullopt;
    }
    return static_cast<LocatedType>(found - std::begin(typeNames));
}

LocatedType requireLocatedType(std::string_view name) {
    const auto type = locatedTypeNamed(name);
    if (!type) {
        std::string message =
            "addresses are not looked up in \"" + std::string(name) + "\"; the types are";
        for (const std::string_view known : typeNames) {
            message += " " + std::string(known);
        }
        throw std::runtime_error(message);
    }
    return *type;
}

LocatedAddresses locateAddresses(LocatedType type, std::span<const uint8_t> octets) {
    LocatedAddresses found;
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, type, octets.data(), octets.size(), placeKindBit(PlaceKind::address));
    while (nextPlace(walk, place)) {
        char path[placePathCapacity];
        const size_t length = placePath(walk, path, sizeof path);
        found.places.push_back(
            {std::string(path, length), place.offset, {place.address, place.port}});
    }
    found.status = walk.status;
    found.splitAddresses = walk.splitAddresses;
    found.refusedElements = walk.refusedElements;
    return found;
}

} // namespace cli
