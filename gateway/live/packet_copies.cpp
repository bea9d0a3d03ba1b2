#include "gateway/live/packet_copies.h"

#include "gateway/live/netlink_attributes.h"

#include <arpa/inet.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace gateway {
namespace {

constexpr uint32_t octetsOfCopy = 128; // headers, options included, end before
constexpr size_t copiesAtOnce = 8;
constexpr int readsAtOnce = 128;              // then those that wait get their turn
constexpr size_t inputSize = 4096;            // of one copy
constexpr int socketBuffer = 2 * 1024 * 1024; // some 5,000 copies

int deliver(const nlmsghdr* header, void* data) {
    uint32_t arrivedOn = 0;
    std::span<uint8_t> octets;
    forEachAttribute(header, sizeof(nfgenmsg), [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) == NFULA_IFINDEX_INDEV &&
            mnl_attr_validate(attribute, MNL_TYPE_U32) == 0) {
            arrivedOn = ntohl(mnl_attr_get_u32(attribute));
        } else if (mnl_attr_get_type(attribute) == NFULA_PAYLOAD) {
            octets = {static_cast<uint8_t*>(mnl_attr_get_payload(attribute)),
                      mnl_attr_get_payload_len(attribute)};
        }
    });
    if (!octets.empty()) {
        (*static_cast<const PacketCopies::Handle*>(data))(arrivedOn, octets);
    }
    return MNL_CB_OK;
}

// Each copy is told at once: it must be there before what its connection brings next.
bool listenTo(mnl_socket* socket, uint16_t group) {
    std::array<char, 512> octets{};
    nlmsghdr* request = mnl_nlmsg_put_header(octets.data());
    request->nlmsg_type = NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_CONFIG;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    auto* generic = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(nfgenmsg)));
    generic->nfgen_family = AF_UNSPEC;
    generic->version = NFNETLINK_V0;
    generic->res_id = htons(group);
    const nfulnl_msg_config_cmd bind{NFULNL_CFG_CMD_BIND};
    const nfulnl_msg_config_mode mode{htonl(octetsOfCopy), NFULNL_COPY_PACKET, 0};
    mnl_attr_put(request, NFULA_CFG_CMD, sizeof bind, &bind);
    mnl_attr_put(request, NFULA_CFG_MODE, sizeof mode, &mode);
    mnl_attr_put_u32(request, NFULA_CFG_QTHRESH, htonl(1));
    if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) {
        return false;
    }
    std::array<char, 4096> answer{};
    const ssize_t length = mnl_socket_recvfrom(socket, answer.data(), answer.size());
    return length >= 0 && mnl_cb_run(answer.data(), static_cast<size_t>(length), 0,
                                     mnl_socket_get_portid(socket), nullptr, nullptr) >= 0;
}

} // namespace

void PacketCopies::open(uint16_t group) {
    socket_.reset(mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC));
    if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
        !listenTo(socket_.get(), group)) {
        socket_.reset();
        return;
    }
    input_ = std::make_unique_for_overwrite<uint8_t[]>(copiesAtOnce * inputSize);
    (void)setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &socketBuffer, sizeof socketBuffer);
}

bool PacketCopies::receive(const Handle& handle) {
    if (!socket_) {
        return true;
    }
    std::array<iovec, copiesAtOnce> places{};
    std::array<mmsghdr, copiesAtOnce> messages{};
    for (size_t i = 0; i < copiesAtOnce; ++i) {
        places[i] = {input_.get() + i * inputSize, inputSize};
        messages[i].msg_hdr.msg_iov = &places[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    bool all = true;
    for (int reads = 0; reads < readsAtOnce; ++reads) {
        const int count =
            recvmmsg(descriptor(), messages.data(), copiesAtOnce, MSG_DONTWAIT, nullptr);
        if (count < 0 && errno == ENOBUFS) {
            all = false;
            continue;
        }
        for (int i = 0; i < count; ++i) {
            const auto at = static_cast<size_t>(i);
            mnl_cb_run(places[at].iov_base, messages[at].msg_len, 0, 0, deliver,
                       const_cast<Handle*>(&handle));
        }
        if (count < static_cast<int>(copiesAtOnce)) {
            break;
        }
    }
    return all;
}

} // namespace gateway
