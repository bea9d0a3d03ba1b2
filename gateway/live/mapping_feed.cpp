#include "gateway/live/mapping_feed.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

namespace gateway {
namespace {

// A datagram: "H3N", the version, then forwards of `forwardOctets` each: kind, 0, public port,
// private address, private port, gatekeeper, all most significant octet first.
constexpr std::array<uint8_t, 4> beginning = {'H', '3', 'N', 2};
constexpr size_t forwardOctets = 14;
constexpr size_t forwardsAtOnce = 100; // within one Ethernet frame

sockaddr_in addressOf(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

void put(std::vector<uint8_t>& out, uint64_t value, int octets) {
    for (int i = octets - 1; i >= 0; --i) {
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

uint32_t addressAt(std::span<const uint8_t> octets) {
    return static_cast<uint32_t>(octets[0]) << 24 | static_cast<uint32_t>(octets[1]) << 16 |
           static_cast<uint32_t>(octets[2]) << 8 | octets[3];
}

std::optional<PortForward> forwardAt(std::span<const uint8_t> octets) {
    if (octets[0] > static_cast<uint8_t>(MappingKind::Control) || octets[1] != 0) {
        return std::nullopt;
    }
    PortForward forward;
    forward.kind = static_cast<MappingKind>(octets[0]);
    forward.publicPort = static_cast<uint16_t>(octets[2] << 8 | octets[3]);
    forward.inside.address = addressAt(octets.subspan(4));
    forward.gatekeeper = addressAt(octets.subspan(10));
    forward.inside.port = static_cast<uint16_t>(octets[8] << 8 | octets[9]);
    return forward.publicPort == 0 || forward.inside.port == 0 ? std::nullopt
                                                               : std::optional(forward);
}

} // namespace

MappingFeed::~MappingFeed() {
    if (socket_ >= 0) {
        close(socket_);
    }
}

std::string MappingFeed::open(const Endpoint& own, const Endpoint& peer) {
    const sockaddr_in from = addressOf(own);
    const sockaddr_in to = addressOf(peer);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0 ||
        bind(descriptor, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0 ||
        connect(descriptor, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        std::string failure =
            "feed from " + toText(own) + " to " + toText(peer) + ": " + std::strerror(errno);
        if (descriptor >= 0) {
            close(descriptor);
        }
        return failure;
    }
    socket_ = descriptor;
    return {};
}

void MappingFeed::send(std::span<const PortForward> forwards) const {
    for (size_t done = 0; socket_ >= 0 && done < forwards.size(); done += forwardsAtOnce) {
        std::vector<uint8_t> datagram(beginning.begin(), beginning.end());
        for (const PortForward& forward :
             forwards.subspan(done, std::min(forwardsAtOnce, forwards.size() - done))) {
            put(datagram, static_cast<uint64_t>(forward.kind), 1);
            put(datagram, 0, 1);
            put(datagram, forward.publicPort, 2);
            put(datagram, forward.inside.address, 4);
            put(datagram, forward.inside.port, 2);
            put(datagram, forward.gatekeeper, 4);
        }
        (void)::send(socket_, datagram.data(), datagram.size(), MSG_NOSIGNAL);
    }
}

std::vector<PortForward> MappingFeed::receive() const {
    std::vector<PortForward> forwards;
    std::array<uint8_t, 2048> datagram{};
    constexpr int datagramsAtOnce = 1000;
    for (int number = 0; number < datagramsAtOnce; ++number) {
        const ssize_t length = recv(socket_, datagram.data(), datagram.size(), 0);
        if (length < 0) {
            break;
        }
        const auto octets = std::span<const uint8_t>(datagram).first(static_cast<size_t>(length));
        if (octets.size() < beginning.size() ||
            !std::equal(beginning.begin(), beginning.end(), octets.begin())) {
            continue;
        }
        for (size_t at = beginning.size(); at + forwardOctets <= octets.size();
             at += forwardOctets) {
            if (const auto forward = forwardAt(octets.subspan(at, forwardOctets))) {
                forwards.push_back(*forward);
            }
        }
    }
    return forwards;
}

} // namespace gateway
