#include "bench/live/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace load {
namespace {

constexpr size_t stockSize = 256;

void setFlag(int socket, int level, int name) {
    const int on = 1;
    if (setsockopt(socket, level, name, &on, sizeof on) != 0) {
        fail(std::string("setsockopt: ") + std::strerror(errno));
    }
}

} // namespace

void fail(const std::string& what) {
    (void)std::fprintf(stderr, "bench_live: %s\n", what.c_str());
    std::exit(2);
}

sockaddr_in toSocketAddress(const Place& place) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(place.port);
    address.sin_addr.s_addr = htonl(place.address);
    return address;
}

Place toPlace(const sockaddr_in& address) {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

Place parsePlace(const std::string& text) {
    const size_t colon = text.find(':');
    in_addr address{};
    if (colon == std::string::npos ||
        inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) != 1) {
        fail("'" + text + "' is no address with a port");
    }
    return {ntohl(address.s_addr),
            static_cast<uint16_t>(std::strtoul(text.c_str() + colon + 1, nullptr, 10))};
}

void writeNumber(uint8_t* at, uint32_t number) {
    for (int i = 3; i >= 0; --i, number >>= 8U) {
        at[i] = static_cast<uint8_t>(number);
    }
}

uint32_t readNumber(const uint8_t* at) {
    return uint32_t{at[0]} << 24U | uint32_t{at[1]} << 16U | uint32_t{at[2]} << 8U | at[3];
}

SocketStock::SocketStock(const std::string& inside, const std::string& outside) {
    for (size_t i = 0; i < namespaces_.size(); ++i) {
        const std::string path = "/run/netns/" + (i == 0 ? inside : outside);
        namespaces_[i] = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (namespaces_[i] < 0) {
            fail(path + ": " + std::strerror(errno));
        }
    }
}

int SocketStock::take(Side side, int type) {
    const auto where = static_cast<size_t>(side);
    std::vector<int>& stock = stock_[where][type == SOCK_STREAM ? 0 : 1];
    if (stock.empty()) {
        if (setns(namespaces_[where], CLONE_NEWNET) != 0) {
            fail(std::string("setns: ") + std::strerror(errno));
        }
        while (stock.size() < stockSize) {
            const int made = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            if (made < 0) {
                fail(std::string("socket: ") + std::strerror(errno));
            }
            setFlag(made, SOL_SOCKET, SO_REUSEADDR);
            if (type == SOCK_STREAM) {
                setFlag(made, IPPROTO_TCP, TCP_NODELAY);
            }
            stock.push_back(made);
        }
    }
    const int taken = stock.back();
    stock.pop_back();
    return taken;
}

void bindTo(int socket, const Place& place) {
    const sockaddr_in address = toSocketAddress(place);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("bind to port " + std::to_string(place.port) + ": " + std::strerror(errno));
    }
}

} // namespace load
