#include "gateway/live/xt_queue_rule.h"

#include "gateway/live/nft_batch.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nf_tables_compat.h>
#include <linux/netfilter/xt_NFQUEUE.h>

#include <cstring>

namespace gateway {
namespace {

constexpr uint32_t targetRevision = 3;

// The kernel reads target data in units of 8 octets.
struct TargetData {
    xt_NFQ_info_v3 info;
    uint16_t padding;
};
static_assert(sizeof(TargetData) == 8);

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

} // namespace

std::string appendXtQueueRule(const std::string& table, const std::string& chain,
                              uint16_t queueNumber) {
    NftBatch batch(1024, 1);
    nlmsghdr* rule = batch.put(NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND);
    mnl_attr_put_strz(rule, NFTA_RULE_TABLE, table.c_str());
    mnl_attr_put_strz(rule, NFTA_RULE_CHAIN, chain.c_str());
    putQueueExpression(rule, queueNumber);
    batch.next(rule);
    NetlinkSocket socket;
    uint32_t sequence = 0;
    const int error = batch.exchange(socket, sequence);
    return error == 0 ? "" : std::strerror(error);
}

} // namespace gateway
