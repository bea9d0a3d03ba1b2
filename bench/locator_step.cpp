#include "bench/locator_step.h"

#include "cli/located_addresses.h"

namespace bench {

namespace {

// What a caller does with places, so that they have to be told.
volatile size_t lastOffset;

} // namespace

LocatorStep::LocatorStep(const CorpusMessage& message)
    : message_(&message), type_(cli::requireLocatedType(message.type->name)) {}

void LocatorStep::run(uint32_t kinds) const {
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, type_, message_->octets.data(), message_->octets.size(), kinds);
    while (nextPlace(walk, place)) {
        lastOffset = place.offset;
    }
}

} // namespace bench
