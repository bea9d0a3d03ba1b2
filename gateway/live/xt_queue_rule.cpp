#include "gateway/live/xt_queue_rule.h"

#include "gateway/live/netlink_socket.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nf_tables_compat.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/xt_NFQUEUE.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

constexpr uint32_t targetRevision = 3;
constexpr uint32_t ruleSequence = 2;

// The kernel reads target data in units of 8 octets.
struct TargetData {
    xt_NFQ_info_v3 info;
    uint16_t padding;
};
static_assert(sizeof(TargetData) == 8);

nlmsghdr* putHeader(mnl_nlmsg_batch* batch, uint16_t type, uint16_t flags, uint8_t family,
                    uint16_t resource, uint32_t sequence) {
    nlmsghdr* header = mnl_nlmsg_put_header(mnl_nlmsg_batch_current(batch));
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    header->nlmsg_seq = sequence;
    auto* generic = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(nfgenmsg)));
    generic->nfgen_family = family;
    generic->version = NFNETLINK_V0;
    generic->res_id = htons(resource);
    return header;
}

void putQueueExpression(nlmsghdr* header, uint16_t queueNumber) {
    const TargetData data{{queueNumber, 1, NFQ_FLAG_BYPASS}, 0};
    nlattr* expressions = mnl_attr_nest_start(header, NFTA_RULE_EXPRESSIONS);
    nlattr* expression = mnl_attr_nest_start(header, NFTA_LIST_ELEM);
    mnl_attr_put_strz(header, NFTA_EXPR_NAME, "target");
    nlattr* content = mnl_attr_nest_start(header, NFTA_EXPR_DATA);
    mnl_attr_put_strz(header, NFTA_TARGET_NAME, "NFQUEUE");
    mnl_attr_put_u32(header, NFTA_TARGET_REV, htonl(targetRevision));
    mnl_attr_put(header, NFTA_TARGET_INFO, sizeof data, &data);
    mnl_attr_nest_end(header, content);
    mnl_attr_nest_end(header, expression);
    mnl_attr_nest_end(header, expressions);
}

// Sends the batch and waits for the kernel's answer to the rule. 0, or an error number.
int exchange(mnl_nlmsg_batch* batch) {
    const NetlinkSocket socket(mnl_socket_open(NETLINK_NETFILTER));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
        mnl_socket_sendto(socket.get(), mnl_nlmsg_batch_head(batch), mnl_nlmsg_batch_size(batch)) <
            0) {
        return errno;
    }
    std::array<char, 8192> answer{};
    const ssize_t length = mnl_socket_recvfrom(socket.get(), answer.data(), answer.size());
    if (length < 0) {
        return errno;
    }
    const int result = mnl_cb_run(answer.data(), static_cast<size_t>(length), ruleSequence,
                                  mnl_socket_get_portid(socket.get()), nullptr, nullptr);
    return result < 0 ? errno : 0;
}

} // namespace

std::string appendXtQueueRule(const std::string& table, const std::string& chain,
                              uint16_t queueNumber) {
    std::array<char, 4096> buffer{};
    mnl_nlmsg_batch* batch = mnl_nlmsg_batch_start(buffer.data(), buffer.size() / 2);
    putHeader(batch, NFNL_MSG_BATCH_BEGIN, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES, 1);
    mnl_nlmsg_batch_next(batch);
    nlmsghdr* rule =
        putHeader(batch, (NFNL_SUBSYS_NFTABLES << 8) | NFT_MSG_NEWRULE,
                  NLM_F_CREATE | NLM_F_APPEND | NLM_F_ACK, NFPROTO_IPV4, 0, ruleSequence);
    mnl_attr_put_strz(rule, NFTA_RULE_TABLE, table.c_str());
    mnl_attr_put_strz(rule, NFTA_RULE_CHAIN, chain.c_str());
    putQueueExpression(rule, queueNumber);
    mnl_nlmsg_batch_next(batch);
    putHeader(batch, NFNL_MSG_BATCH_END, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES, ruleSequence + 1);
    mnl_nlmsg_batch_next(batch);

    const int error = exchange(batch);
    mnl_nlmsg_batch_stop(batch);
    return error == 0 ? "" : std::strerror(error);
}

} // namespace gateway
