#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace load {

// Host byte order.
struct Place {
    uint32_t address = 0;
    uint16_t port = 0;

    bool operator==(const Place&) const = default;
};

sockaddr_in toSocketAddress(const Place& place);
Place toPlace(const sockaddr_in& address);
Place parsePlace(const std::string& text); // 192.0.2.1:1720; ends the program if it is none

// Four octets, most significant first.
void writeNumber(uint8_t* at, uint32_t number);
uint32_t readNumber(const uint8_t* at);

// Ends the program: a load that cannot be played has no figures.
[[noreturn]] void fail(const std::string& what);

enum class Side : uint8_t { Inside, Outside };

// Sockets of two network namespaces. To enter a namespace costs far more than a socket, so they are
// made in stock. All are non-blocking and not bound.
class SocketStock {
public:
    SocketStock(const std::string& inside, const std::string& outside);
    int take(Side side, int type); // SOCK_STREAM or SOCK_DGRAM

private:
    std::array<int, 2> namespaces_{};
    std::array<std::array<std::vector<int>, 2>, 2> stock_;
};

void bindTo(int socket, const Place& place);

} // namespace load
