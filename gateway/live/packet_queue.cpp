#include "gateway/live/packet_queue.h"

#include <arpa/inet.h>
#include <libnetfilter_queue/libnetfilter_queue.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nfnetlink_queue.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace gateway {
namespace {

constexpr size_t largestPacket = 0xFFFF;
constexpr size_t packetsAtOnce = 8;
constexpr size_t inputSize = largestPacket + 4097; // of one packet
constexpr size_t outputSize = largestPacket + 4097;
constexpr int socketBuffer = 8 * 1024 * 1024;
constexpr uint32_t configureSequence = 1;

struct Delivery {
    const std::function<void(const QueuedPacket&)>* handle;
    bool last;
};

int deliver(const nlmsghdr* header, void* data) {
    std::array<nlattr*, NFQA_MAX + 1> attributes{};
    if (nfq_nlmsg_parse(header, attributes.data()) < 0 || attributes[NFQA_PACKET_HDR] == nullptr ||
        attributes[NFQA_PAYLOAD] == nullptr) {
        return MNL_CB_OK;
    }
    const auto* meta =
        static_cast<const nfqnl_msg_packet_hdr*>(mnl_attr_get_payload(attributes[NFQA_PACKET_HDR]));
    QueuedPacket packet;
    packet.id = ntohl(meta->packet_id);
    if (attributes[NFQA_IFINDEX_INDEV] != nullptr) {
        packet.arrivedOn = ntohl(mnl_attr_get_u32(attributes[NFQA_IFINDEX_INDEV]));
    }
    packet.octets = {static_cast<uint8_t*>(mnl_attr_get_payload(attributes[NFQA_PAYLOAD])),
                     mnl_attr_get_payload_len(attributes[NFQA_PAYLOAD])};
    const auto& delivery = *static_cast<const Delivery*>(data);
    packet.last = delivery.last;
    (*delivery.handle)(packet);
    return MNL_CB_OK;
}

nlmsghdr* newRequest(std::vector<uint8_t>& buffer, uint16_t queue) {
    nlmsghdr* request =
        nfq_nlmsg_put(reinterpret_cast<char*>(buffer.data()), NFQNL_MSG_CONFIG, queue);
    request->nlmsg_flags = static_cast<uint16_t>(request->nlmsg_flags | NLM_F_ACK);
    request->nlmsg_seq = configureSequence;
    return request;
}

} // namespace

std::string PacketQueue::configure(const nlmsghdr* request) {
    if (mnl_socket_sendto(socket_.get(), request, request->nlmsg_len) < 0) {
        return std::strerror(errno);
    }
    std::array<char, 4096> answer{};
    const ssize_t length = mnl_socket_recvfrom(socket_.get(), answer.data(), answer.size());
    if (length < 0 || mnl_cb_run(answer.data(), static_cast<size_t>(length), configureSequence,
                                 mnl_socket_get_portid(socket_.get()), nullptr, nullptr) < 0) {
        return std::strerror(errno);
    }
    return {};
}

std::string PacketQueue::open(uint16_t number, uint32_t length) {
    const std::string prefix = "cannot use netfilter queue " + std::to_string(number) + ": ";
    number_ = number;
    input_ = std::make_unique_for_overwrite<uint8_t[]>(packetsAtOnce * inputSize);
    output_.resize(outputSize);
    socket_.reset(mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC));
    if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
        return prefix + std::strerror(errno);
    }
    // A larger buffer only delays overruns; without it they come sooner and are counted as well.
    (void)setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &socketBuffer, sizeof socketBuffer);

    nlmsghdr* request = newRequest(output_, number);
    nfq_nlmsg_cfg_put_cmd(request, AF_INET, NFQNL_CFG_CMD_BIND);
    std::string failure = configure(request);
    if (!failure.empty()) {
        return prefix + failure + "; is another program using it? (queue-number chooses another)";
    }
    request = newRequest(output_, number);
    nfq_nlmsg_cfg_put_params(request, NFQNL_COPY_PACKET, largestPacket);
    nfq_nlmsg_cfg_put_qmaxlen(request, length);
    mnl_attr_put_u32(request, NFQA_CFG_FLAGS, htonl(NFQA_CFG_F_FAIL_OPEN));
    mnl_attr_put_u32(request, NFQA_CFG_MASK, htonl(NFQA_CFG_F_FAIL_OPEN | NFQA_CFG_F_GSO));
    failure = configure(request);
    if (!failure.empty()) {
        return prefix + failure;
    }
    copies_.open(number);
    return {};
}

PacketQueue::Received PacketQueue::receive(const std::function<void(const QueuedPacket&)>& handle) {
    std::array<iovec, packetsAtOnce> places{};
    std::array<mmsghdr, packetsAtOnce> messages{};
    for (size_t i = 0; i < packetsAtOnce; ++i) {
        places[i] = {input_.get() + i * inputSize, inputSize};
        messages[i].msg_hdr.msg_iov = &places[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int count = recvmmsg(descriptor(), messages.data(), packetsAtOnce, MSG_DONTWAIT, nullptr);
    const bool overrun = count < 0 && errno == ENOBUFS;
    if (count < 0 && !overrun && errno != EAGAIN && errno != EINTR) {
        return Received::Failed;
    }
    // Read behind the queue, handled before it.
    const bool allCopies = copies_.receive([&](uint32_t arrivedOn, std::span<uint8_t> octets) {
        handle({0, false, arrivedOn, octets, false});
    });
    const auto received = static_cast<size_t>(std::max(count, 0));
    for (size_t i = 0; i < received; ++i) {
        Delivery delivery{&handle, i + 1 == received};
        mnl_cb_run(places[i].iov_base, messages[i].msg_len, 0, mnl_socket_get_portid(socket_.get()),
                   deliver, &delivery);
    }
    if (overrun || !allCopies) {
        return Received::Overrun;
    }
    return received < packetsAtOnce ? Received::Nothing : Received::Packets;
}

void PacketQueue::giveVerdict(uint32_t id, int verdict, std::span<const uint8_t> replacement) {
    constexpr size_t octetsOfVerdict = 64;
    if (written_ + octetsOfVerdict + replacement.size() > output_.size()) {
        send();
    }
    nlmsghdr* message = nfq_nlmsg_put(reinterpret_cast<char*>(output_.data() + written_),
                                      NFQNL_MSG_VERDICT, number_);
    nfq_nlmsg_verdict_put(message, static_cast<int>(id), verdict);
    if (!replacement.empty()) {
        nfq_nlmsg_verdict_put_pkt(message, replacement.data(),
                                  static_cast<uint32_t>(replacement.size()));
    }
    written_ += MNL_ALIGN(message->nlmsg_len);
    ++verdicts_;
    ++judged_;
}

void PacketQueue::send() {
    if (written_ != 0 && mnl_socket_sendto(socket_.get(), output_.data(), written_) < 0) {
        refused_ += verdicts_;
    }
    written_ = 0;
    verdicts_ = 0;
}

void PacketQueue::accept(uint32_t id, std::span<const uint8_t> replacement) {
    giveVerdict(id, NF_ACCEPT, replacement);
}

void PacketQueue::drop(uint32_t id) {
    giveVerdict(id, NF_DROP, {});
}

uint64_t PacketQueue::settle() {
    send();
    return std::exchange(refused_, 0);
}

} // namespace gateway
