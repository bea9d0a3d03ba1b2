#pragma once

#include <bitset>
#include <cstdint>
#include <optional>

namespace gateway {

// The public ports of one transport protocol. Ports are taken alone, or as an even port and the
// odd one above it.
class PortAllocator {
public:
    // Ports that may be handed out when the wished one is taken. `first` >= 1.
    PortAllocator(uint16_t first, uint16_t last);

    // The wished port when it is free, whatever the range; otherwise a free one of the range.
    std::optional<uint16_t> take(uint16_t wished);

    // Exactly this port.
    bool takeExactly(uint16_t port);

    // As take, for `wished` (even) and `wished` + 1; answers the even port.
    std::optional<uint16_t> takePair(uint16_t wished);

    bool takePairExactly(uint16_t evenPort);

    void release(uint16_t port);
    void releasePair(uint16_t evenPort);

private:
    template <typename Take> std::optional<uint16_t> search(Take take);
    [[nodiscard]] bool inRange(uint16_t port) const { return port >= first_ && port <= last_; }
    void mark(uint16_t port);

    uint16_t first_;
    uint16_t last_;
    uint16_t cursor_;
    int freeInRange_;
    std::bitset<65536> taken_;
};

} // namespace gateway
