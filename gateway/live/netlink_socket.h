#pragma once

#include <libmnl/libmnl.h>

#include <memory>

namespace gateway {

struct CloseNetlinkSocket {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using NetlinkSocket = std::unique_ptr<mnl_socket, CloseNetlinkSocket>;

} // namespace gateway
