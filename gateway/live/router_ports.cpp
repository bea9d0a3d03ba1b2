#include "gateway/live/router_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace gateway {

bool isFreeOnRouter(Protocol protocol, uint16_t port) {
    const int type = protocol == Protocol::Tcp ? SOCK_STREAM : SOCK_DGRAM;
    const int probe = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return true; // then nothing can be told
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const int bound = bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const bool used = bound != 0 && errno == EADDRINUSE;
    close(probe);
    return !used;
}

} // namespace gateway
