#pragma once

#include "gateway/live/netlink_socket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace gateway {

// Copies of packets that went on without waiting, by a log group of netfilter.
class PacketCopies {
public:
    // Octets from the IP header on, which may be changed in place.
    using Handle = std::function<void(uint32_t arrivedOn, std::span<uint8_t> octets)>;

    // Listens to the group. Nothing will come when the kernel has no log groups, or another program
    // has this one.
    void open(uint16_t group);

    // To wait for with poll; negative: nothing will come.
    [[nodiscard]] int descriptor() const { return socket_ ? mnl_socket_get_fd(socket_.get()) : -1; }

    // Hands over what has come, without waiting. False when the kernel could not deliver some.
    bool receive(const Handle& handle);

private:
    NetlinkSocket socket_;
    std::unique_ptr<uint8_t[]> input_;
};

} // namespace gateway
