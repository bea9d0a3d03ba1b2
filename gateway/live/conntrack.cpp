#include "gateway/live/conntrack.h"

#include <arpa/inet.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack_tcp.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace gateway {
namespace {

struct DestroyEntry {
    void operator()(nf_conntrack* entry) const { nfct_destroy(entry); }
};
using Entry = std::unique_ptr<nf_conntrack, DestroyEntry>;

Endpoint endpointOf(const nf_conntrack* entry, nf_conntrack_attr address, nf_conntrack_attr port) {
    return {ntohl(nfct_get_attr_u32(entry, address)), ntohs(nfct_get_attr_u16(entry, port))};
}

bool isOpenState(uint8_t state) {
    return state == TCP_CONNTRACK_SYN_SENT || state == TCP_CONNTRACK_SYN_RECV ||
           state == TCP_CONNTRACK_ESTABLISHED;
}

std::optional<TrackedFlow> flowOf(const nf_conntrack* entry) {
    const uint8_t protocol = nfct_get_attr_u8(entry, ATTR_L4PROTO);
    if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP) {
        return std::nullopt;
    }
    TrackedFlow flow;
    flow.protocol = static_cast<Protocol>(protocol);
    flow.originalSource = endpointOf(entry, ATTR_ORIG_IPV4_SRC, ATTR_ORIG_PORT_SRC);
    flow.originalDestination = endpointOf(entry, ATTR_ORIG_IPV4_DST, ATTR_ORIG_PORT_DST);
    flow.replySource = endpointOf(entry, ATTR_REPL_IPV4_SRC, ATTR_REPL_PORT_SRC);
    flow.replyDestination = endpointOf(entry, ATTR_REPL_IPV4_DST, ATTR_REPL_PORT_DST);
    flow.secondsLeft = nfct_get_attr_u32(entry, ATTR_TIMEOUT);
    flow.tcpOpen = protocol == IPPROTO_TCP && isOpenState(nfct_get_attr_u8(entry, ATTR_TCP_STATE));
    flow.hasHelper = nfct_attr_is_set(entry, ATTR_HELPER_NAME) > 0;
    flow.originalPackets = nfct_get_attr_u64(entry, ATTR_ORIG_COUNTER_PACKETS);
    flow.replyPackets = nfct_get_attr_u64(entry, ATTR_REPL_COUNTER_PACKETS);
    return flow;
}

Entry entryFor(Protocol protocol, const Endpoint& source, const Endpoint& destination) {
    Entry entry(nfct_new());
    if (entry) {
        nfct_set_attr_u8(entry.get(), ATTR_L3PROTO, AF_INET);
        nfct_set_attr_u8(entry.get(), ATTR_L4PROTO, static_cast<uint8_t>(protocol));
        nfct_set_attr_u32(entry.get(), ATTR_IPV4_SRC, htonl(source.address));
        nfct_set_attr_u32(entry.get(), ATTR_IPV4_DST, htonl(destination.address));
        nfct_set_attr_u16(entry.get(), ATTR_PORT_SRC, htons(source.port));
        nfct_set_attr_u16(entry.get(), ATTR_PORT_DST, htons(destination.port));
    }
    return entry;
}

} // namespace

FlowViews viewsOf(const TrackedFlow& flow, bool startedInside) {
    if (startedInside) {
        return {flow.originalSource,
                flow.replyDestination,
                flow.originalDestination,
                flow.hasHelper,
                {flow.originalPackets, flow.replyPackets}};
    }
    return {flow.replySource,
            flow.originalDestination,
            flow.originalSource,
            flow.hasHelper,
            {flow.replyPackets, flow.originalPackets}};
}

Conntrack::Conntrack() : handle_(nfct_open(CONNTRACK, 0)) {
    if (handle_ == nullptr) {
        failure_ =
            std::string("cannot reach the kernel's connection table (nf_conntrack_netlink): ") +
            std::strerror(errno);
        return;
    }
    const auto callback = [](nf_conntrack_msg_type type, nf_conntrack* entry, void* self) {
        return collect(type, entry, self);
    };
    nfct_callback_register(handle_, NFCT_T_ALL, callback, this);
}

Conntrack::~Conntrack() {
    if (handle_ != nullptr) {
        nfct_close(handle_);
    }
}

int Conntrack::collect(unsigned /*type*/, nf_conntrack* entry, void* self) {
    if (const auto flow = flowOf(entry)) {
        static_cast<Conntrack*>(self)->received_.push_back(*flow);
    }
    return NFCT_CB_CONTINUE;
}

int Conntrack::query(unsigned kind, const void* data) {
    received_.clear();
    return handle_ == nullptr ? -1
                              : nfct_query(handle_, static_cast<nf_conntrack_query>(kind), data);
}

std::optional<TrackedFlow> Conntrack::find(Protocol protocol, const Endpoint& source,
                                           const Endpoint& destination) {
    const Entry entry = entryFor(protocol, source, destination);
    if (!entry || query(NFCT_Q_GET, entry.get()) != 0 || received_.empty()) {
        return std::nullopt;
    }
    return received_.front();
}

bool Conntrack::list(std::vector<TrackedFlow>& flows) {
    const uint32_t family = AF_INET;
    const bool answered = query(NFCT_Q_DUMP, &family) == 0;
    flows.swap(received_);
    return answered;
}

bool Conntrack::remove(const TrackedFlow& flow) {
    const Entry entry = entryFor(flow.protocol, flow.originalSource, flow.originalDestination);
    return entry && query(NFCT_Q_DESTROY, entry.get()) == 0;
}

} // namespace gateway
