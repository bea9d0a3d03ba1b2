#include "gateway/live/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace gateway {

void notifyServiceManager(const std::string& state) {
    const char* path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || (path[0] != '/' && path[0] != '@') ||
        std::strlen(path) >= sizeof address.sun_path) {
        return;
    }
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, std::strlen(path));
    if (path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
    (void)sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                 reinterpret_cast<sockaddr*>(&address), length);
    close(descriptor);
}

std::chrono::microseconds watchdogInterval() {
    const char* text = std::getenv("WATCHDOG_USEC");
    int64_t microseconds = 0;
    if (text == nullptr ||
        std::from_chars(text, text + std::strlen(text), microseconds).ec != std::errc{} ||
        microseconds < 0) {
        return {};
    }
    return std::chrono::microseconds(microseconds / 2);
}

} // namespace gateway
