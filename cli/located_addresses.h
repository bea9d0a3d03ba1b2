#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/endpoint.h"
#include "locator/locator.h"

namespace cli {

struct LocatedAddress {
    std::string path;  ///< below the top-level type, names as in the modules
    size_t offset = 0; ///< octets from the start of the message to the 4 of the address
    gateway::Endpoint endpoint;
};

struct LocatedAddresses {
    std::vector<LocatedAddress> places; ///< in the order of their offsets
    LocateStatus status = LocateStatus::complete;
    uint32_t splitAddresses = 0;
    uint32_t refusedElements = 0;
};

/// The type that a name such as "H225RasMessage" stands for; nothing for a type that is not walked.
std::optional<LocatedType> locatedTypeNamed(std::string_view name);

/// The same for a command's user. Throws std::runtime_error that lists the names.
LocatedType requireLocatedType(std::string_view name);

LocatedAddresses locateAddresses(LocatedType type, std::span<const uint8_t> octets);

} // namespace cli
