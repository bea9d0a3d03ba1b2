#pragma once

#include "gateway/live/netlink_socket.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace gateway {

struct QueuedPacket {
    uint32_t id = 0;
    uint32_t arrivedOn = 0;    // interface index
    std::span<uint8_t> octets; // from the IP header on; may be changed in place
};

// The packets that the kernel hands over through one netfilter queue. Segments that the network
// card would have cut are cut by the kernel before they come, and checksums are complete, so every
// packet is as the wire would have it.
class PacketQueue {
public:
    // Takes the queue. Gives an empty text, or what went wrong.
    std::string open(uint16_t number, uint32_t length);

    // To wait for with poll.
    [[nodiscard]] int descriptor() const { return mnl_socket_get_fd(socket_.get()); }

    enum class Received { Packets, Nothing, Overrun, Failed };

    // Hands over what one read brings, without waiting. Overrun: the kernel could not deliver some
    // packets and let them pass.
    Received receive(const std::function<void(const QueuedPacket&)>& handle);

    // Lets a packet go on, with `replacement` instead of its octets if that is not empty. False
    // when the kernel did not take the verdict.
    bool accept(uint32_t id, std::span<const uint8_t> replacement);

    // Lets a packet vanish. False when the kernel did not take the verdict.
    bool drop(uint32_t id);

    // Of `wanted` packets that the rules had sent this way when the queue was last emptied, those
    // that the kernel could not queue: it let them pass, or dropped them for want of memory; `held`
    // wait for their verdict. A packet that the kernel cut into segments counts once in `wanted`,
    // so this is the least that it can have been.
    [[nodiscard]] uint64_t notDelivered(uint64_t wanted, uint64_t held) const {
        return wanted > judged_ + held ? wanted - judged_ - held : 0;
    }

private:
    std::string configure(const nlmsghdr* request);
    bool giveVerdict(uint32_t id, int verdict, std::span<const uint8_t> replacement);

    NetlinkSocket socket_;
    uint16_t number_ = 0;
    uint64_t judged_ = 0;
    std::vector<uint8_t> input_;
    std::vector<uint8_t> output_;
};

} // namespace gateway
