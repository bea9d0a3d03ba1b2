#include "bench/live/player.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

// RTP of the calls: the first packets, by which a call counts as up, and as much as will go.
namespace load {
namespace {

constexpr std::array<uint8_t, 172> rtpHeader = {0x80, 0x00}; // 20 ms of G.711

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

} // namespace

void Player::sendFirstMedia(Call& call) {
    const bool answers = options_.between == Between::Plain;
    if (!sendRtp(call, Role::MediaInside, call.places[static_cast<size_t>(What::FarMedia)]) ||
        (!answers && !sendRtp(call, Role::MediaOutside, call.announced))) {
        failCall(call, "media was not sent");
    }
}

bool Player::sendRtp(Call& call, Role role, const Place& to) {
    std::array<uint8_t, rtpHeader.size()> packet = rtpHeader;
    ++call.rtpSequence;
    packet[2] = static_cast<uint8_t>(call.rtpSequence >> 8U);
    packet[3] = static_cast<uint8_t>(call.rtpSequence);
    writeNumber(packet.data() + 8, call.number); // SSRC
    const sockaddr_in address = toSocketAddress(to);
    return sendto(socketOf(call, role), packet.data(), packet.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) == static_cast<ssize_t>(packet.size());
}

void Player::readMedia(Call& call, Role role) {
    std::array<uint8_t, rtpHeader.size()> packet{};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(socketOf(call, role), packet.data(), packet.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &size);
    if (length != static_cast<ssize_t>(packet.size()) || call.isUp ||
        readNumber(packet.data() + 8) != call.number) {
        return;
    }
    if (role == Role::MediaInside) {
        call.heardInside = Clock::now();
    } else {
        call.heardOutside = Clock::now();
        call.seenMedia = toPlace(from);
        if (options_.between == Between::Plain && !sendRtp(call, role, call.seenMedia)) {
            failCall(call, "media was not sent");
            return;
        }
        counts_.wrong += options_.between == Between::Gateway && call.seenMedia != call.announced;
    }
    const Clock::time_point none{};
    if (call.heardInside == none || call.heardOutside == none) {
        return;
    }
    call.isUp = true;
    --settingUp_;
    ++counts_.up;
    times_.setup.push_back(microseconds(call.setupArrived - call.began));
    times_.toOutside.push_back(microseconds(call.heardOutside - call.began));
    times_.toInside.push_back(microseconds(call.heardInside - call.began));
    advance(call);
}

uint64_t Player::sendMedia(std::chrono::milliseconds time, uint64_t& sent) {
    constexpr size_t burst = 32;
    std::vector<Call*> up;
    for (Call& call : calls_) {
        if (call.active && call.isUp) {
            up.push_back(&call);
        }
    }
    uint64_t arrived = 0;
    sent = 0;
    const auto drain = [&](Call& call, Role role) {
        std::array<uint8_t, rtpHeader.size()> packet{};
        while (recv(socketOf(call, role), packet.data(), packet.size(), 0) > 0) {
            ++arrived;
        }
    };
    const auto until = Clock::now() + time;
    for (size_t first = 0; !up.empty() && Clock::now() < until;
         first = first + burst >= up.size() ? 0 : first + burst) {
        const size_t last = std::min(first + burst, up.size());
        for (size_t i = first; i < last; ++i) {
            sent += sendRtp(*up[i], Role::MediaInside,
                            up[i]->places[static_cast<size_t>(What::FarMedia)]);
            sent += sendRtp(*up[i], Role::MediaOutside, up[i]->seenMedia);
        }
        for (size_t i = first; i < last; ++i) {
            drain(*up[i], Role::MediaOutside);
            drain(*up[i], Role::MediaInside);
        }
    }
    usleep(100000);
    for (Call* const call : up) {
        drain(*call, Role::MediaOutside);
        drain(*call, Role::MediaInside);
    }
    return arrived;
}

} // namespace load
