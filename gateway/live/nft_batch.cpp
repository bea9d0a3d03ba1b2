#include "gateway/live/nft_batch.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>

namespace gateway {

NftBatch::NftBatch(size_t octets, uint32_t firstSequence)
    : octets_(octets + 512), sequence_(firstSequence) {
    putBoundary(NFNL_MSG_BATCH_BEGIN);
}

nlmsghdr* NftBatch::putHeader(uint16_t type, uint16_t flags, uint8_t family, uint16_t resource) {
    nlmsghdr* header = mnl_nlmsg_put_header(octets_.data() + used_);
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    header->nlmsg_seq = sequence_++;
    auto* generic = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(nfgenmsg)));
    generic->nfgen_family = family;
    generic->version = NFNETLINK_V0;
    generic->res_id = htons(resource);
    return header;
}

void NftBatch::putBoundary(uint16_t type) {
    used_ += putHeader(type, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES)->nlmsg_len;
}

nlmsghdr* NftBatch::put(uint16_t type, uint16_t flags) {
    last_ =
        putHeader(static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | type), flags, NFPROTO_IPV4, 0);
    return last_;
}

void NftBatch::next(const nlmsghdr* message) {
    used_ += MNL_ALIGN(message->nlmsg_len);
}

// The kernel answers messages that failed, and the last one, which asks for it.
int NftBatch::exchange(NetlinkSocket& socket, uint32_t& nextSequence) {
    if (!socket) {
        socket.reset(mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC));
        const timeval patience{2, 0};
        if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
            setsockopt(mnl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &patience,
                       sizeof patience) != 0) {
            const int error = errno;
            socket.reset();
            return error;
        }
    }
    last_->nlmsg_flags = static_cast<uint16_t>(last_->nlmsg_flags | NLM_F_ACK);
    const uint32_t awaited = last_->nlmsg_seq;
    putBoundary(NFNL_MSG_BATCH_END);
    nextSequence = sequence_;
    if (mnl_socket_sendto(socket.get(), octets_.data(), used_) < 0) {
        return errno;
    }
    int failed = 0;
    std::array<char, 16384> answer{};
    for (;;) {
        const ssize_t length = mnl_socket_recvfrom(socket.get(), answer.data(), answer.size());
        if (length < 0) {
            return errno;
        }
        auto rest = static_cast<int>(length);
        for (auto* header = reinterpret_cast<nlmsghdr*>(answer.data()); mnl_nlmsg_ok(header, rest);
             header = mnl_nlmsg_next(header, &rest)) {
            if (header->nlmsg_type != NLMSG_ERROR) {
                continue;
            }
            const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
            failed = failed != 0 ? failed : -error->error;
            if (error->msg.nlmsg_seq == awaited || error->msg.nlmsg_type == NFNL_MSG_BATCH_BEGIN) {
                return failed;
            }
        }
    }
}

} // namespace gateway
