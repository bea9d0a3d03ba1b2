#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "asn1gen/locate_plan.h"

namespace asn1gen {

/// The members by whose names a host of the locator tells places apart, and the alternatives of
/// CHOICEs that are told.
class LocateFields {
public:
    std::vector<std::string> names; ///< number 1 first
    std::vector<std::pair<std::string, uint32_t>> alternatives;

    uint16_t number(const Type& type);
    uint16_t number(const Type& type, const Component& component);

    /// That of a member that is an address, or told; 0 for any other.
    uint16_t of(const LocatePlan& plan, const LocateNode& node, const Component& component,
                const LocateNode& member);

    void addAlternatives(const Type& choice);

private:
    uint16_t numberOf(const std::string& name);
};

} // namespace asn1gen
