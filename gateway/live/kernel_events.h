#pragma once

#include "gateway/live/netlink_socket.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

// What the kernel tells by itself. Both functions return at once.

// Addresses and links of the machine.
class LinkEvents {
public:
    // Gives an empty text, or what went wrong.
    std::string open();
    [[nodiscard]] int descriptor() const { return mnl_socket_get_fd(socket_.get()); }

    // True when an address or a link has changed since the last call.
    bool changed();

private:
    NetlinkSocket socket_;
};

// Changes of an nftables table by others.
class TableEvents {
public:
    // Watches the table of this name. Gives an empty text, or what went wrong.
    std::string open(const std::string& table);
    [[nodiscard]] int descriptor() const { return mnl_socket_get_fd(socket_.get()); }

    // True when another program has removed the table, or a chain, rule or set of it, or when
    // events were missed. Looks for news only when there are some.
    bool damaged(bool news);

    // Takes in what the gateway's own changes have caused. Events missed meanwhile are its own.
    void settle();

private:
    static int read(const nlmsghdr* header, void* self);
    bool readAll();

    NetlinkSocket socket_;
    std::vector<char> input_;
    std::string table_;
    std::string ownName_;  // of this process, as the kernel has it
    bool removed_ = false; // in the transaction that is being told
    bool damaged_ = false;
};

} // namespace gateway
