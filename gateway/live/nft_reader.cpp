#include "gateway/live/nft_reader.h"

#include "gateway/live/netlink_attributes.h"
#include "gateway/live/netlink_socket.h"

#include <arpa/inet.h>
#include <endian.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <array>
#include <cstring>

namespace gateway {
namespace {

constexpr uint32_t sequence = 1;
constexpr LiveSeconds millisecondsPerSecond = 1000;

class Request {
public:
    Request(uint16_t type, uint16_t flags) : header_(mnl_nlmsg_put_header(octets_.data())) {
        header_->nlmsg_type = static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | type);
        header_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
        header_->nlmsg_seq = sequence;
        auto* generic =
            static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header_, sizeof(nfgenmsg)));
        generic->nfgen_family = NFPROTO_IPV4;
        generic->version = NFNETLINK_V0;
    }

    [[nodiscard]] nlmsghdr* header() const { return header_; }

    // Hands every answer to `read`.
    void exchange(mnl_cb_t read, void* context) {
        const NetlinkSocket socket(mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC));
        if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
            mnl_socket_sendto(socket.get(), header_, header_->nlmsg_len) < 0) {
            return;
        }
        const bool many = (header_->nlmsg_flags & NLM_F_DUMP) != 0;
        const unsigned port = mnl_socket_get_portid(socket.get());
        for (int result = MNL_CB_OK; result > MNL_CB_STOP;) {
            const ssize_t length =
                mnl_socket_recvfrom(socket.get(), octets_.data(), octets_.size());
            result = length <= 0 ? MNL_CB_ERROR
                                 : mnl_cb_run(octets_.data(), static_cast<size_t>(length), sequence,
                                              port, read, context);
            if (!many) {
                return;
            }
        }
    }

private:
    std::array<char, 65536> octets_{};
    nlmsghdr* header_;
};

int readPackets(const nlmsghdr* header, void* packets) {
    forEachAttribute(header, sizeof(nfgenmsg), [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) != NFTA_OBJ_DATA) {
            return;
        }
        forEachNested(attribute, [&](const nlattr* part) {
            if (mnl_attr_get_type(part) == NFTA_COUNTER_PACKETS &&
                mnl_attr_validate(part, MNL_TYPE_U64) == 0) {
                *static_cast<uint64_t*>(packets) = be64toh(mnl_attr_get_u64(part));
            }
        });
    });
    return MNL_CB_OK;
}

struct Uses {
    LiveSeconds timeout;
    std::vector<EndpointUse> found;
};

void readKey(const nlattr* key, Endpoint& endpoint) {
    forEachNested(key, [&](const nlattr* part) {
        std::array<uint8_t, 8> octets{};
        if (mnl_attr_get_type(part) == NFTA_DATA_VALUE &&
            mnl_attr_get_payload_len(part) == octets.size()) {
            std::memcpy(octets.data(), mnl_attr_get_payload(part), octets.size());
            endpoint = {static_cast<uint32_t>(octets[0]) << 24 |
                            static_cast<uint32_t>(octets[1]) << 16 |
                            static_cast<uint32_t>(octets[2]) << 8 | octets[3],
                        static_cast<uint16_t>(octets[4] << 8 | octets[5])};
        }
    });
}

void readElement(const nlattr* element, Uses& uses) {
    EndpointUse use;
    LiveSeconds left = 0;
    forEachNested(element, [&](const nlattr* part) {
        if (mnl_attr_get_type(part) == NFTA_SET_ELEM_KEY) {
            readKey(part, use.inside);
        } else if (mnl_attr_get_type(part) == NFTA_SET_ELEM_EXPIRATION &&
                   mnl_attr_validate(part, MNL_TYPE_U64) == 0) {
            left = static_cast<LiveSeconds>(be64toh(mnl_attr_get_u64(part)));
        }
    });
    if (use.inside.port != 0) {
        use.ago = uses.timeout - left / millisecondsPerSecond;
        uses.found.push_back(use);
    }
}

int readElements(const nlmsghdr* header, void* uses) {
    forEachAttribute(header, sizeof(nfgenmsg), [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) == NFTA_SET_ELEM_LIST_ELEMENTS) {
            forEachNested(attribute, [&](const nlattr* element) {
                readElement(element, *static_cast<Uses*>(uses));
            });
        }
    });
    return MNL_CB_OK;
}

} // namespace

uint64_t readCounter(const std::string& table, const std::string& counter) {
    Request request(NFT_MSG_GETOBJ, 0);
    mnl_attr_put_strz(request.header(), NFTA_OBJ_TABLE, table.c_str());
    mnl_attr_put_strz(request.header(), NFTA_OBJ_NAME, counter.c_str());
    mnl_attr_put_u32(request.header(), NFTA_OBJ_TYPE, htonl(NFT_OBJECT_COUNTER));
    uint64_t packets = 0;
    request.exchange(readPackets, &packets);
    return packets;
}

std::vector<EndpointUse> readUses(const std::string& table, const std::string& set,
                                  LiveSeconds timeout) {
    Request request(NFT_MSG_GETSETELEM, NLM_F_DUMP | NLM_F_ACK);
    mnl_attr_put_strz(request.header(), NFTA_SET_ELEM_LIST_TABLE, table.c_str());
    mnl_attr_put_strz(request.header(), NFTA_SET_ELEM_LIST_SET, set.c_str());
    Uses uses{timeout, {}};
    request.exchange(readElements, &uses);
    return uses.found;
}

} // namespace gateway
