#include "gateway/live/table_lock.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace gateway {

TableLock::~TableLock() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

std::string TableLock::take(const std::string& table) {
    const std::string name = "h323nat-table-" + table;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    descriptor_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor_ < 0 || bind(descriptor_, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        return errno == EADDRINUSE
                   ? "another gateway uses the nftables table '" + table +
                         "'; table = NAME chooses another"
                   : "cannot lock the nftables table '" + table + "': " + std::strerror(errno);
    }
    return {};
}

} // namespace gateway
