#pragma once

#include "bench/live/script.h"
#include "bench/live/sockets.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace load {

using Clock = std::chrono::steady_clock;

// What stands between the two sides: it decides what a message may look like when it arrives.
enum class Between : uint8_t {
    Gateway, // every address of a private host has become public, nothing else has changed
    Helper,  // media is told by a public address
    Plain    // nothing has changed; media is answered to where it came from
};

struct Options {
    std::string insideNamespace;
    std::string outsideNamespace;
    Between between = Between::Gateway;
    uint32_t publicAddress = 0;
    uint32_t firstHost = 0; // address of the first private host, the others follow
    uint32_t hosts = 1;
    Place called;     // outside
    Place gatekeeper; // outside
    uint32_t calls = 1000;
    uint32_t first = 0;   // number of the first call: ports follow from it
    uint32_t window = 32; // calls that are being set up at once
    double rate = 0;      // calls begun a second; 0: as many as the window lets
    bool hold = false;    // no call ends before `endCalls`
};

// Microseconds, one for each call that was heard both ways.
struct Times {
    std::vector<double> setup; // from sending the Setup to its arrival
    std::vector<double> toOutside;
    std::vector<double> toInside; // from sending the Setup to the first media
};

struct Counts {
    uint64_t up = 0;     // heard both ways
    uint64_t ended = 0;  // played to the end
    uint64_t failed = 0; // a connection broke, or nothing came for too long
    uint64_t wrong = 0;  // a message arrived other than it had to
};

// Plays calls of private hosts, by turns of each script, between sockets of both sides.
class Player {
public:
    Player(const Options& options, const std::vector<Script>& scripts);

    // Until every call is up (if they are held) or over.
    void run();

    // Sends RTP from both ends of every call for as long as told, each packet over the next
    // call. Gives the number of packets that arrived; `sent` all of them.
    uint64_t sendMedia(std::chrono::milliseconds time, uint64_t& sent);

    // Plays the rest of the calls that were held.
    void endCalls();

    [[nodiscard]] const Counts& counts() const { return counts_; }
    [[nodiscard]] const Times& times() const { return times_; }

private:
    enum class Role : uint8_t {
        CallListener,
        Accepted, // it is not known yet for which call
        Gatekeeper,
        Client,
        Server,
        H245Listener,
        H245Client,
        H245Server,
        RasClient,
        MediaInside,
        MediaOutside,
        count
    };
    static constexpr size_t roleCount = static_cast<size_t>(Role::count);

    struct Call {
        bool active = false;
        bool isUp = false;
        bool connecting = false;
        uint32_t number = 0;
        const Script* script = nullptr;
        size_t position = 0;
        uint16_t rtpSequence = 0; // of both directions
        std::array<int, roleCount> sockets{};
        std::array<Place, whatCount> places;
        Place announced;           // of the private host's media, as the outside party read it
        Place seenRas;             // where the gatekeeper sees the private host
        Place seenMedia;           // the same of media
        std::vector<uint8_t> sent; // the message that is under way
        std::vector<uint8_t> got;
        Role reader = Role::count; // who waits for it
        Clock::time_point began;
        Clock::time_point setupArrived;
        Clock::time_point heardOutside;
        Clock::time_point heardInside;
    };

    int& socketOf(Call& call, Role role) { return call.sockets[static_cast<size_t>(role)]; }
    void watch(int socket, Role role, uint32_t key, uint32_t events);
    bool open(Call& call, Role role, Side side, int type, const Place& own);
    void begin(uint32_t number);
    void advance(Call& call);
    bool connect(Call& call, Role role, const Place& to);
    void send(Call& call, const ScriptMessage& message);
    void sendFirstMedia(Call& call);
    bool sendRtp(Call& call, Role role, const Place& to);
    void handle(Role role, uint32_t key);
    void accept(Role role, Call* call);
    void readAccepted(int socket);
    void readGatekeeper();
    void readMedia(Call& call, Role role);
    void read(Call& call, Role role);
    void take(Call& call);
    bool arrivedRight(Call& call, const ScriptMessage& message);
    void end(Call& call);
    void failCall(Call& call, const char* why);
    void note(const Call& call, const char* what);
    void failOverdue();
    void turn(int waitMilliseconds);

    Options options_;
    const std::vector<Script>& scripts_;
    SocketStock stock_;
    int poll_ = -1;
    int listener_ = -1;
    int gatekeeper_ = -1;
    std::vector<Call> calls_; // by number, modulo its size
    uint32_t begun_ = 0;
    uint32_t settingUp_ = 0;
    bool held_ = false;
    uint32_t noted_ = 0;
    Counts counts_;
    Times times_;
};

} // namespace load
