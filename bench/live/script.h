#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What is said in a call, with places that differ from call to call. live_load.py writes it from a
// recorded call:
//   kind NAME
//   message signalling|h245|ras in|out talk|end HEX [OFFSET:WHAT]...
namespace load {

enum class Channel : uint8_t { Signalling, H245, Ras };

// Six octets of address and port in network byte order, but for Number, four octets of the call's
// identifier, and Sequence, the two octets of a RAS request's number.
enum class What : uint8_t {
    Media,     // of the private host
    Control,   // RTCP of it
    Client,    // the port that it calls from
    Listening, // the port that it takes calls at
    RasClient,
    FarMedia, // of the outside party
    FarControl,
    FarH245,
    Number,
    Sequence
};
constexpr size_t whatCount = 10;
constexpr size_t octetsOf(What what) {
    return what == What::Number ? 4 : what == What::Sequence ? 2 : 6;
}
constexpr bool isPrivate(What what) {
    return what <= What::RasClient;
}

struct Patch {
    size_t offset = 0;
    What what = What::Media;
};

struct ScriptMessage {
    Channel channel = Channel::Signalling;
    bool fromInside = true;
    bool ends = false; // belongs to the end of the call: media is heard before it
    std::vector<uint8_t> octets;
    std::vector<Patch> patches;
};

struct Script {
    std::string kind;
    std::vector<ScriptMessage> messages;
};

// Ends the program when the file is none.
std::vector<Script> readScripts(const std::string& path);

} // namespace load
