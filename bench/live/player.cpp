#include "bench/live/player.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace load {
namespace {

constexpr uint32_t slots = 16000;
// Ports of the sides, by the slot of a call: media has two each.
constexpr uint16_t firstMediaPort = 10000;
constexpr uint16_t firstRasPort = 44000;
constexpr uint16_t firstH245Port = 20000;
// A port that one call announced is no other connection's: the system chooses behind these.
constexpr uint16_t firstClientPort = 33000;
constexpr auto patience = std::chrono::seconds(10);
constexpr int backlog = 4096;
constexpr int waiting = 1; // milliseconds

// From 1 on (H.225.0, RequestSeqNum).
void writeSequence(uint8_t* at, uint32_t slot) {
    at[0] = static_cast<uint8_t>((slot + 1) >> 8U);
    at[1] = static_cast<uint8_t>(slot + 1);
}

void writePlace(uint8_t* at, const Place& place) {
    writeNumber(at, place.address);
    at[4] = static_cast<uint8_t>(place.port >> 8U);
    at[5] = static_cast<uint8_t>(place.port);
}

Place readPlace(const uint8_t* at) {
    return {readNumber(at), static_cast<uint16_t>(at[4] << 8U | at[5])};
}

size_t identifierIn(const ScriptMessage& message) {
    for (const Patch& patch : message.patches) {
        if (patch.what == What::Number) {
            return patch.offset;
        }
    }
    fail("a Setup without an identifier");
}

} // namespace

Player::Player(const Options& options, const std::vector<Script>& scripts)
    : options_(options), scripts_(scripts),
      stock_(options.insideNamespace, options.outsideNamespace),
      poll_(epoll_create1(EPOLL_CLOEXEC)), calls_(slots) {
    if (options_.hold && options_.calls > slots) {
        fail("at most " + std::to_string(slots) + " calls can be held");
    }
    listener_ = stock_.take(Side::Outside, SOCK_STREAM);
    bindTo(listener_, options_.called);
    if (listen(listener_, backlog) != 0) {
        fail(std::string("listen: ") + std::strerror(errno));
    }
    watch(listener_, Role::CallListener, 0, EPOLLIN);
    gatekeeper_ = stock_.take(Side::Outside, SOCK_DGRAM);
    bindTo(gatekeeper_, options_.gatekeeper);
    watch(gatekeeper_, Role::Gatekeeper, 0, EPOLLIN);
    for (Call& call : calls_) {
        call.sockets.fill(-1);
    }
}

void Player::watch(int socket, Role role, uint32_t key, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = static_cast<uint64_t>(role) << 32U | key;
    if (epoll_ctl(poll_, EPOLL_CTL_ADD, socket, &event) != 0 &&
        epoll_ctl(poll_, EPOLL_CTL_MOD, socket, &event) != 0) {
        fail(std::string("epoll_ctl: ") + std::strerror(errno));
    }
}

bool Player::open(Call& call, Role role, Side side, int type, const Place& own) {
    int& socket = socketOf(call, role);
    if (socket >= 0) {
        return false;
    }
    socket = stock_.take(side, type);
    bindTo(socket, own);
    return true;
}

// --- The course of a call

void Player::begin(uint32_t number) {
    Call& call = calls_[number % slots];
    if (call.active) {
        fail("more calls at once than there are ports for");
    }
    const uint32_t slot = number % slots;
    const uint32_t host = options_.firstHost + slot % options_.hosts;
    const auto place = [&](What what) -> Place& { return call.places[static_cast<size_t>(what)]; };
    const auto media = static_cast<uint16_t>(firstMediaPort + 2 * slot);
    call.active = true;
    call.isUp = false;
    call.number = number;
    call.script = &scripts_[number % scripts_.size()];
    call.position = 0;
    call.announced = call.seenRas = call.seenMedia = {};
    call.heardInside = call.heardOutside = {};
    call.began = Clock::now();
    place(What::Media) = {host, media};
    place(What::Control) = {host, static_cast<uint16_t>(media + 1)};
    place(What::RasClient) = {host, static_cast<uint16_t>(firstRasPort + slot)};
    place(What::Listening) = place(What::RasClient); // a port of TCP, nobody calls
    place(What::FarMedia) = {options_.called.address, media};
    place(What::FarControl) = {options_.called.address, static_cast<uint16_t>(media + 1)};
    place(What::FarH245) = {options_.called.address, static_cast<uint16_t>(firstH245Port + slot)};

    // Sockets of media and RAS stay for the next call of the slot.
    open(call, Role::MediaInside, Side::Inside, SOCK_DGRAM, place(What::Media));
    open(call, Role::MediaOutside, Side::Outside, SOCK_DGRAM, place(What::FarMedia));
    watch(socketOf(call, Role::MediaInside), Role::MediaInside, number, EPOLLIN);
    watch(socketOf(call, Role::MediaOutside), Role::MediaOutside, number, EPOLLIN);
    bool hasH245 = false;
    bool hasRas = false;
    for (const ScriptMessage& message : call.script->messages) {
        hasH245 |= message.channel == Channel::H245;
        hasRas |= message.channel == Channel::Ras;
    }
    if (hasRas) {
        open(call, Role::RasClient, Side::Inside, SOCK_DGRAM, place(What::RasClient));
        watch(socketOf(call, Role::RasClient), Role::RasClient, number, EPOLLIN);
    }
    if (hasH245) {
        open(call, Role::H245Listener, Side::Outside, SOCK_STREAM, place(What::FarH245));
        const int socket = socketOf(call, Role::H245Listener);
        if (listen(socket, 1) != 0) {
            fail(std::string("listen: ") + std::strerror(errno));
        }
        watch(socket, Role::H245Listener, number, EPOLLIN);
    }
    place(What::Client) = {host, static_cast<uint16_t>(firstClientPort + slot)};
    open(call, Role::Client, Side::Inside, SOCK_STREAM, place(What::Client));
    ++settingUp_;
    advance(call);
}

bool Player::connect(Call& call, Role role, const Place& to) {
    const sockaddr_in address = toSocketAddress(to);
    const int socket = socketOf(call, role);
    call.connecting = true;
    watch(socket, role, call.number, EPOLLOUT);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS) {
        failCall(call, std::strerror(errno));
        return false;
    }
    return true;
}

// Says what is next, or waits for what must come before it.
void Player::advance(Call& call) {
    if (call.position == call.script->messages.size()) {
        end(call);
        return;
    }
    const ScriptMessage& message = call.script->messages[call.position];
    if (message.ends && !call.isUp) {
        sendFirstMedia(call);
        return;
    }
    if (message.ends && options_.hold && !held_) {
        return;
    }
    const bool opens = message.fromInside && !call.connecting;
    if (message.channel == Channel::Signalling && opens && socketOf(call, Role::Server) < 0) {
        // A registration comes before the call and is no part of its time.
        call.began = Clock::now();
        connect(call, Role::Client, options_.called);
        return;
    }
    if (message.channel == Channel::H245 && opens && socketOf(call, Role::H245Client) < 0) {
        open(call, Role::H245Client, Side::Inside, SOCK_STREAM,
             {call.places[static_cast<size_t>(What::Media)].address, 0});
        connect(call, Role::H245Client, call.places[static_cast<size_t>(What::FarH245)]);
        return;
    }
    call.connecting = false;
    send(call, message);
}

void Player::send(Call& call, const ScriptMessage& message) {
    call.sent = message.octets;
    call.got.clear();
    for (const Patch& patch : message.patches) {
        uint8_t* const at = call.sent.data() + patch.offset;
        if (patch.what == What::Number) {
            writeNumber(at, call.number);
        } else if (patch.what == What::Sequence) {
            writeSequence(at, call.number % slots);
        } else {
            writePlace(at, call.places[static_cast<size_t>(patch.what)]);
        }
    }
    Role from = message.fromInside ? Role::Client : Role::Server;
    call.reader = message.fromInside ? Role::Server : Role::Client;
    Place to;
    if (message.channel == Channel::H245) {
        from = message.fromInside ? Role::H245Client : Role::H245Server;
        call.reader = message.fromInside ? Role::H245Server : Role::H245Client;
    } else if (message.channel == Channel::Ras) {
        from = message.fromInside ? Role::RasClient : Role::Gatekeeper;
        call.reader = message.fromInside ? Role::Gatekeeper : Role::RasClient;
        to = message.fromInside ? options_.gatekeeper : call.seenRas;
    }
    const int socket = from == Role::Gatekeeper ? gatekeeper_ : socketOf(call, from);
    const sockaddr_in address = toSocketAddress(to);
    const bool stream = message.channel != Channel::Ras;
    const ssize_t written = sendto(socket, call.sent.data(), call.sent.size(), MSG_NOSIGNAL,
                                   stream ? nullptr : reinterpret_cast<const sockaddr*>(&address),
                                   stream ? 0 : sizeof address);
    if (written != static_cast<ssize_t>(call.sent.size())) {
        failCall(call, "not sent");
    }
}

void Player::end(Call& call) {
    ++counts_.ended;
    for (const Role role :
         {Role::Client, Role::H245Client, Role::Server, Role::H245Server, Role::H245Listener}) {
        if (int& socket = socketOf(call, role); socket >= 0) {
            close(socket);
            socket = -1;
        }
    }
    call.active = false;
}

// The first few tell enough.
void Player::note(const Call& call, const char* what) {
    constexpr uint32_t most = 5;
    if (++noted_ <= most) {
        (void)std::fprintf(stderr, "bench_live: call %u (%s), message %zu of %zu: %s\n",
                           call.number, call.script->kind.c_str(), call.position + 1,
                           call.script->messages.size(), what);
    }
}

void Player::failCall(Call& call, const char* why) {
    note(call, why);
    if (!call.isUp) {
        --settingUp_;
    }
    ++counts_.failed;
    end(call);
    --counts_.ended;
}

void Player::failOverdue() {
    const auto now = Clock::now();
    for (Call& call : calls_) {
        const bool resting = call.isUp && options_.hold && !held_;
        if (call.active && !resting && now - call.began > patience) {
            failCall(call, "nothing came");
        }
    }
}

// --- What arrives

void Player::handle(Role role, uint32_t key) {
    if (role == Role::CallListener) {
        accept(role, nullptr);
        return;
    }
    if (role == Role::Accepted) {
        readAccepted(static_cast<int>(key));
        return;
    }
    if (role == Role::Gatekeeper) {
        readGatekeeper();
        return;
    }
    Call& call = calls_[key % slots];
    if (!call.active || call.number != key) {
        return; // it ended in the same turn
    }
    if (role == Role::H245Listener) {
        accept(role, &call);
    } else if (role == Role::MediaInside || role == Role::MediaOutside) {
        readMedia(call, role);
    } else if (call.connecting && (role == Role::Client || role == Role::H245Client)) {
        watch(socketOf(call, role), role, key, EPOLLIN);
        advance(call);
    } else {
        read(call, role);
    }
}

void Player::accept(Role role, Call* call) {
    const int listener = call == nullptr ? listener_ : socketOf(*call, role);
    const int made = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (made < 0) {
        return;
    }
    const linger reset{1, 0}; // no port waits for stray segments
    setsockopt(made, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    if (call == nullptr) {
        watch(made, Role::Accepted, static_cast<uint32_t>(made), EPOLLIN);
        return;
    }
    close(socketOf(*call, role));
    socketOf(*call, role) = -1;
    socketOf(*call, Role::H245Server) = made;
    watch(made, Role::H245Server, call->number, EPOLLIN);
}

void Player::readAccepted(int socket) {
    std::array<uint8_t, 2048> first{};
    const ssize_t length = recv(socket, first.data(), first.size(), MSG_PEEK);
    if (length < 0 && errno == EAGAIN) {
        return;
    }
    for (const Script& script : scripts_) {
        const auto setup =
            std::find_if(script.messages.begin(), script.messages.end(), [](const auto& message) {
                return message.channel == Channel::Signalling;
            });
        const size_t at = identifierIn(*setup);
        if (length != static_cast<ssize_t>(setup->octets.size())) {
            continue;
        }
        const uint32_t number = readNumber(first.data() + at);
        Call& call = calls_[number % slots];
        if (call.active && call.number == number && call.script == &script &&
            socketOf(call, Role::Server) < 0) {
            call.setupArrived = Clock::now();
            socketOf(call, Role::Server) = socket;
            watch(socket, Role::Server, number, EPOLLIN);
            read(call, Role::Server);
            return;
        }
    }
    close(socket);
}

void Player::readGatekeeper() {
    std::array<uint8_t, 2048> datagram{};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(gatekeeper_, datagram.data(), datagram.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 4) {
        return;
    }
    for (const size_t at : {size_t{1}, size_t{2}}) {
        const auto sequence = static_cast<uint32_t>(datagram[at] << 8U | datagram[at + 1]);
        Call& call = calls_[(sequence + slots - 1) % slots];
        if (call.active && call.reader == Role::Gatekeeper &&
            length == static_cast<ssize_t>(call.sent.size()) &&
            std::equal(call.sent.begin(), call.sent.begin() + 4, datagram.begin())) {
            call.seenRas = toPlace(from);
            call.got.assign(datagram.begin(), datagram.begin() + length);
            take(call);
            return;
        }
    }
}

void Player::read(Call& call, Role role) {
    std::array<uint8_t, 2048> piece{};
    const ssize_t length = recv(socketOf(call, role), piece.data(), piece.size(), 0);
    if (length < 0 && errno == EAGAIN) {
        return;
    }
    if (length <= 0 || role != call.reader) {
        failCall(call, length < 0    ? std::strerror(errno)
                       : length == 0 ? "the connection ended"
                                     : "octets that nobody waits for");
        return;
    }
    call.got.insert(call.got.end(), piece.begin(), piece.begin() + length);
    if (call.got.size() >= call.sent.size()) {
        take(call);
    }
}

// A whole message has come.
void Player::take(Call& call) {
    const ScriptMessage& message = call.script->messages[call.position];
    if (!arrivedRight(call, message)) {
        ++counts_.wrong;
        note(call, "arrived other than it had to");
    }
    call.reader = Role::count;
    ++call.position;
    advance(call);
}

bool Player::arrivedRight(Call& call, const ScriptMessage& message) {
    if (call.got.size() != call.sent.size()) {
        return false;
    }
    bool right = true;
    for (const Patch& patch : message.patches) {
        if (!message.fromInside || !isPrivate(patch.what)) {
            continue;
        }
        const Place read = readPlace(call.got.data() + patch.offset);
        if (patch.what == What::Media) {
            call.announced = read;
        }
        if (options_.between == Between::Gateway) {
            right = right && read.address == options_.publicAddress;
            writePlace(call.sent.data() + patch.offset, read);
        }
    }
    return right && (options_.between == Between::Helper || call.got == call.sent);
}

// --- All calls

void Player::turn(int waitMilliseconds) {
    std::array<epoll_event, 256> events{};
    const int count =
        epoll_wait(poll_, events.data(), static_cast<int>(events.size()), waitMilliseconds);
    for (int i = 0; i < count; ++i) {
        const uint64_t data = events[static_cast<size_t>(i)].data.u64;
        handle(static_cast<Role>(data >> 32U), static_cast<uint32_t>(data));
    }
}

void Player::run() {
    const auto start = Clock::now();
    auto looked = start;
    const auto done = [&] { return (options_.hold ? counts_.up : counts_.ended) + counts_.failed; };
    while (done() < options_.calls) {
        const std::chrono::duration<double> passed = Clock::now() - start;
        const double due = options_.rate > 0 ? passed.count() * options_.rate : options_.calls;
        while (begun_ < options_.calls && settingUp_ < options_.window && begun_ < due) {
            begin(options_.first + begun_++);
        }
        turn(waiting);
        if (Clock::now() - looked > std::chrono::seconds(1)) {
            looked = Clock::now();
            failOverdue();
        }
    }
}

void Player::endCalls() {
    held_ = true;
    const auto start = Clock::now();
    size_t next = 0;
    while (counts_.ended + counts_.failed < options_.calls &&
           Clock::now() - start < std::chrono::seconds(60)) {
        for (uint32_t i = 0; i < options_.window && next < calls_.size(); ++next, ++i) {
            Call& call = calls_[next];
            if (call.active) {
                call.began = Clock::now();
                advance(call);
            }
        }
        turn(waiting);
    }
    failOverdue();
}

} // namespace load
