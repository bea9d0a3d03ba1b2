#pragma once

#include "gateway/live/netlink_socket.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gateway {

// A transaction of nftables messages for the IPv4 family (linux/netfilter/nf_tables.h).
class NftBatch {
public:
    // Room for messages of `octets` in all; `firstSequence` is the number of the first one.
    NftBatch(size_t octets, uint32_t firstSequence);

    // Begins a message, NFT_MSG_...; the caller puts the attributes and calls `next`.
    nlmsghdr* put(uint16_t type, uint16_t flags);
    void next(const nlmsghdr* message);

    // Sends the batch by a socket, which is opened if it is not, and waits for the kernel's answer.
    // 0, or the error number of the first message that failed. Sets `nextSequence`.
    int exchange(NetlinkSocket& socket, uint32_t& nextSequence);

private:
    void putBoundary(uint16_t type);
    nlmsghdr* putHeader(uint16_t type, uint16_t flags, uint8_t family, uint16_t resource);

    std::vector<char> octets_;
    size_t used_ = 0;
    uint32_t sequence_;
    nlmsghdr* last_ = nullptr;
};

} // namespace gateway
