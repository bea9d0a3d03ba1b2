#pragma once

#include "gateway/live/netlink_socket.h"
#include "gateway/live/packet_copies.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace gateway {

struct QueuedPacket {
    uint32_t id = 0;
    bool waits = true;         // for its verdict; else it has gone on, and this is a copy
    uint32_t arrivedOn = 0;    // interface index
    std::span<uint8_t> octets; // from the IP header on; may be changed in place
    bool last = true;          // of those that came together
};

// The packets that the kernel hands over through one netfilter queue. Segments that the network
// card would have cut are cut by the kernel before they come, and checksums are complete, so every
// packet is as the wire would have it.
//
// Copies of packets that do not wait come by the log group of the same number, each of them before
// what its connection brings next.
class PacketQueue {
public:
    // Takes the queue. Gives an empty text, or what went wrong.
    std::string open(uint16_t number, uint32_t length);

    // To wait for with poll.
    [[nodiscard]] int descriptor() const { return mnl_socket_get_fd(socket_.get()); }

    // The same for copies alone, which may be left for a while; negative: no copies will come.
    [[nodiscard]] int copiesDescriptor() const { return copies_.descriptor(); }

    enum class Received { Packets, Nothing, Overrun, Failed };

    // Hands over what one read brings, without waiting; Nothing: no more is there to be read.
    // Overrun: the kernel could not deliver some packets, or copies, and let them pass.
    Received receive(const std::function<void(const QueuedPacket&)>& handle);

    // Lets a packet go on, with `replacement` instead of its octets if that is not empty.
    void accept(uint32_t id, std::span<const uint8_t> replacement);

    // Lets a packet vanish.
    void drop(uint32_t id);

    // Sends the verdicts given since, in their order: the kernel takes several for the price of
    // one. Gives the number of those that it did not take.
    uint64_t settle();

    // Of `wanted` packets that the rules had sent this way when the queue was last emptied, those
    // that the kernel could not queue: it let them pass, or dropped them for want of memory; `held`
    // wait for their verdict. A packet that the kernel cut into segments counts once in `wanted`,
    // so this is the least that it can have been.
    [[nodiscard]] uint64_t notDelivered(uint64_t wanted, uint64_t held) const {
        return wanted > judged_ + held ? wanted - judged_ - held : 0;
    }

private:
    std::string configure(const nlmsghdr* request);
    void giveVerdict(uint32_t id, int verdict, std::span<const uint8_t> replacement);
    void send();

    NetlinkSocket socket_;
    PacketCopies copies_;
    uint16_t number_ = 0;
    uint64_t judged_ = 0;
    std::unique_ptr<uint8_t[]> input_;
    std::vector<uint8_t> output_;
    size_t written_ = 0;    // octets of output_
    uint64_t verdicts_ = 0; // in output_
    uint64_t refused_ = 0;
};

} // namespace gateway
