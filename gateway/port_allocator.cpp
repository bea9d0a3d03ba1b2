#include "gateway/port_allocator.h"

namespace gateway {

PortAllocator::PortAllocator(uint16_t first, uint16_t last)
    : first_(first), last_(last), cursor_(first), freeInRange_(last - first + 1) {
    taken_.set(0);
}

// A full range answers at once: a search through all of it would be paid for every packet.
template <typename Take> std::optional<uint16_t> PortAllocator::search(Take take) {
    const int size = last_ - first_ + 1;
    for (int step = 0; freeInRange_ > 0 && step < size; ++step) {
        const uint16_t port = cursor_;
        cursor_ = cursor_ == last_ ? first_ : static_cast<uint16_t>(cursor_ + 1);
        if (take(port)) {
            return port;
        }
    }
    return std::nullopt;
}

std::optional<uint16_t> PortAllocator::take(uint16_t wished) {
    if (takeExactly(wished)) {
        return wished;
    }
    return search([this](uint16_t port) { return takeExactly(port); });
}

bool PortAllocator::takeExactly(uint16_t port) {
    if (taken_.test(port)) {
        return false;
    }
    mark(port);
    return true;
}

std::optional<uint16_t> PortAllocator::takePair(uint16_t wished) {
    if (takePairExactly(wished)) {
        return wished;
    }
    return search(
        [this](uint16_t port) { return port % 2 == 0 && port < last_ && takePairExactly(port); });
}

bool PortAllocator::takePairExactly(uint16_t evenPort) {
    const auto oddPort = static_cast<uint16_t>(evenPort + 1);
    if (taken_.test(evenPort) || taken_.test(oddPort)) {
        return false;
    }
    mark(evenPort);
    mark(oddPort);
    return true;
}

void PortAllocator::mark(uint16_t port) {
    taken_.set(port);
    freeInRange_ -= inRange(port) ? 1 : 0;
}

void PortAllocator::release(uint16_t port) {
    taken_.reset(port);
    freeInRange_ += inRange(port) ? 1 : 0;
}

void PortAllocator::releasePair(uint16_t evenPort) {
    release(evenPort);
    release(static_cast<uint16_t>(evenPort + 1));
}

} // namespace gateway
