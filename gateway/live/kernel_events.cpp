#include "gateway/live/kernel_events.h"

#include "gateway/live/netlink_attributes.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/rtnetlink.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

std::string openSocket(NetlinkSocket& socket, int bus, unsigned groups, const char* what) {
    socket.reset(mnl_socket_open2(bus, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
        return std::string("cannot listen to the kernel's news of ") + what + ": " +
               std::strerror(errno);
    }
    return {};
}

uint16_t nameAttribute(uint16_t type) {
    switch (type) {
    case NFT_MSG_DELTABLE:
        return NFTA_TABLE_NAME;
    case NFT_MSG_DELCHAIN:
        return NFTA_CHAIN_TABLE;
    case NFT_MSG_DELRULE:
        return NFTA_RULE_TABLE;
    case NFT_MSG_DELSET:
        return NFTA_SET_TABLE;
    case NFT_MSG_DELSETELEM:
        return NFTA_SET_ELEM_LIST_TABLE;
    default:
        return 0;
    }
}

const nlattr* findAttribute(const nlmsghdr* header, uint16_t type) {
    const nlattr* found = nullptr;
    forEachAttribute(header, sizeof(nfgenmsg), [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) == type) {
            found = attribute;
        }
    });
    return found;
}

} // namespace

std::string LinkEvents::open() {
    return openSocket(socket_, NETLINK_ROUTE, RTMGRP_LINK | RTMGRP_IPV4_IFADDR, "interfaces");
}

bool LinkEvents::changed() {
    std::array<char, 8192> octets{};
    bool any = false;
    for (;;) {
        const ssize_t length = recv(descriptor(), octets.data(), octets.size(), MSG_DONTWAIT);
        if (length <= 0 && errno != ENOBUFS) {
            return any;
        }
        any = true;
    }
}

std::string TableEvents::open(const std::string& table) {
    table_ = table;
    input_.resize(65536);
    std::array<char, 16> name{};
    (void)prctl(PR_GET_NAME, name.data());
    ownName_.assign(name.data(), strnlen(name.data(), name.size()));
    std::string failure = openSocket(socket_, NETLINK_NETFILTER, 0, "nftables");
    const int group = NFNLGRP_NFTABLES;
    const int buffer = 8 * 1024 * 1024; // a table with many mappings is told in one go
    if (failure.empty()) {
        (void)setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
    }
    if (failure.empty() && mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP,
                                                 const_cast<int*>(&group), sizeof group) < 0) {
        failure =
            std::string("cannot listen to the kernel's news of nftables: ") + std::strerror(errno);
    }
    return failure;
}

// The end of each transaction tells whose it was. Its process number says nothing in a container,
// where this one has another; a second gateway has a table of its own.
int TableEvents::read(const nlmsghdr* header, void* self) {
    auto& events = *static_cast<TableEvents*>(self);
    const auto type = static_cast<uint16_t>(header->nlmsg_type & 0xFF);
    if (header->nlmsg_type >> 8 != NFNL_SUBSYS_NFTABLES) {
        return MNL_CB_OK;
    }
    if (type == NFT_MSG_NEWGEN) {
        const nlattr* process = findAttribute(header, NFTA_GEN_PROC_NAME);
        const bool ours = process != nullptr && mnl_attr_validate(process, MNL_TYPE_STRING) == 0 &&
                          events.ownName_ == mnl_attr_get_str(process);
        events.damaged_ = events.damaged_ || (events.removed_ && !ours);
        events.removed_ = false;
        return MNL_CB_OK;
    }
    const uint16_t attribute = nameAttribute(type);
    const nlattr* name = attribute == 0 ? nullptr : findAttribute(header, attribute);
    const auto* generic = static_cast<const nfgenmsg*>(mnl_nlmsg_get_payload(header));
    if (name != nullptr && generic->nfgen_family == NFPROTO_IPV4 &&
        mnl_attr_validate(name, MNL_TYPE_NUL_STRING) == 0 &&
        events.table_ == mnl_attr_get_str(name)) {
        events.removed_ = true;
    }
    return MNL_CB_OK;
}

// False when events were missed.
bool TableEvents::readAll() {
    bool all = true;
    for (;;) {
        const ssize_t length = recv(descriptor(), input_.data(), input_.size(), MSG_DONTWAIT);
        if (length < 0 && errno == ENOBUFS) {
            all = false;
            continue;
        }
        if (length <= 0) {
            return all;
        }
        mnl_cb_run(input_.data(), static_cast<size_t>(length), 0, 0, read, this);
    }
}

bool TableEvents::damaged(bool news) {
    const bool all = !news || readAll();
    const bool damaged = damaged_ || !all;
    damaged_ = false;
    return damaged;
}

void TableEvents::settle() {
    (void)readAll();
}

} // namespace gateway
