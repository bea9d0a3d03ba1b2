#include "gateway/live/status_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

constexpr int waitingConnections = 8;
constexpr timeval patience{3, 0};
constexpr int sendBuffer = 8 * 1024 * 1024; // full lists of long names are 3 MB
constexpr mode_t ownerAndGroup = 0117;      // umask

bool fillAddress(const std::string& path, sockaddr_un& address) {
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

std::string failureAt(const std::string& path) {
    return "status socket '" + path + "': " + std::strerror(errno);
}

// Removes the socket of a run that ended; anything else stays.
std::string makeRoom(const std::string& path, const sockaddr_un& address) {
    struct stat there {};
    if (lstat(path.c_str(), &there) != 0) {
        return {};
    }
    const std::string prefix = "status socket '" + path + "': ";
    if (!S_ISSOCK(there.st_mode)) {
        return prefix + "a file that is no socket is there; choose another path";
    }
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool answered =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    close(probe);
    if (answered) {
        return prefix + "another gateway answers there; status-socket chooses another path";
    }
    unlink(path.c_str());
    return {};
}

} // namespace

StatusSocket::~StatusSocket() {
    if (listener_ >= 0) {
        close(listener_);
        unlink(path_.c_str());
    }
}

std::string StatusSocket::open(const std::string& path) {
    sockaddr_un address{};
    if (!fillAddress(path, address)) {
        return "status socket '" + path + "': the path is too long";
    }
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) {
        return failureAt(path);
    }
    std::string failure = makeRoom(path, address);
    if (!failure.empty()) {
        close(listener);
        return failure;
    }
    const mode_t before = umask(ownerAndGroup);
    const int bound = bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    umask(before);
    if (bound != 0 || listen(listener, waitingConnections) != 0) {
        failure = failureAt(path) + "; does its directory exist?";
        close(listener);
        return failure;
    }
    listener_ = listener;
    path_ = path;
    return {};
}

void StatusSocket::answer(const std::function<std::string()>& text) const {
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection < 0) {
        return;
    }
    // What does not fit into the buffer at once is not sent: the reader sees half an object.
    if (setsockopt(connection, SOL_SOCKET, SO_SNDBUFFORCE, &sendBuffer, sizeof sendBuffer) != 0) {
        (void)setsockopt(connection, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    }
    const std::string content = text();
    (void)send(connection, content.data(), content.size(), MSG_NOSIGNAL);
    close(connection);
}

std::string readStatus(const std::string& path, std::string& answer) {
    sockaddr_un address{};
    if (!fillAddress(path, address)) {
        return "status socket '" + path + "': the path is too long";
    }
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (const int limit : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        (void)setsockopt(connection, SOL_SOCKET, limit, &patience, sizeof patience);
    }
    if (connection < 0 ||
        connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::string failure =
            failureAt(path) + "; is the gateway running, and may you read its status?";
        if (connection >= 0) {
            close(connection);
        }
        return failure;
    }
    std::array<char, 65536> part{};
    ssize_t length = 0;
    while ((length = recv(connection, part.data(), part.size(), 0)) > 0) {
        answer.append(part.data(), static_cast<size_t>(length));
    }
    const bool late = length < 0 && errno == EAGAIN;
    std::string failure = late
                              ? "status socket '" + path + "': the gateway did not answer within " +
                                    std::to_string(patience.tv_sec) + " seconds"
                          : length < 0 ? failureAt(path)
                                       : "";
    close(connection);
    return failure;
}

} // namespace gateway
