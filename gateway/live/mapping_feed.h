#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/table_sets.h"

#include <span>
#include <string>
#include <vector>

namespace gateway {

// Mappings on their way to a second router that stands in when this one dies: datagrams between two
// addresses of the network that the two share. Datagrams may get lost: all mappings are told again
// at every sweep.
class MappingFeed {
public:
    MappingFeed() = default;
    MappingFeed(const MappingFeed&) = delete;
    MappingFeed& operator=(const MappingFeed&) = delete;
    ~MappingFeed();

    // Speaks from `own` to `peer`, and hears nobody else. Gives an empty text, or what went wrong.
    std::string open(const Endpoint& own, const Endpoint& peer);

    // To wait for with poll; -1 when it is not open.
    [[nodiscard]] int descriptor() const { return socket_; }

    void send(std::span<const PortForward> forwards) const;

    // What the peer has told since the last call.
    [[nodiscard]] std::vector<PortForward> receive() const;

private:
    int socket_ = -1;
};

} // namespace gateway
