// Names for the places of a walk, for reports. The tables behind are read by nothing else.
#pragma once

#include <cstddef>

#include "locator/locator.h"

// The way to the place that nextPlace gave last, names as in the modules with list indexes, as in
// "h323-uu-pdu.h323-message-body.setup.fastStart[0].forwardLogicalChannelParameters...". Begins
// below the top-level type; of an address it ends with the alternative that holds it ("ipAddress"),
// of a message body with the alternative's name. Writes at most capacity octets, ended with 0 and
// cut at a component where it is too long; returns the length written without the 0.
size_t placePath(const LocatorWalk& walk, char* text, size_t capacity);

constexpr size_t placePathCapacity = 2048;

// "address", "callIdentifier", ...
const char* placeKindName(PlaceKind kind);
