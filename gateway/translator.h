#pragma once

#include "gateway/endpoint.h"
#include "include/h323nat.h"

#include <optional>

namespace gateway {

// The answer to a request for a media mapping.
struct MediaMapping {
    // What the message shall carry. A refused request repeats the private endpoint here, which
    // leaves the message as it is.
    Endpoint publicEndpoint;
    // Records of the pair, or null when the module shall not link them.
    HostMappingRecord* first = nullptr;
    HostMappingRecord* second = nullptr;
    bool granted = false;
    bool reused = false; // the pair was open before
};

struct ControlMapping {
    Endpoint publicEndpoint;
    bool reused = false;
};

// The NAT as the module sees it through the host's callbacks. Called only from inside
// ModuleSession::send and ModuleSession::receive. No function throws.
class Translator {
public:
    Translator() = default;
    Translator(const Translator&) = delete;
    Translator& operator=(const Translator&) = delete;
    virtual ~Translator() = default;

    // A UDP port pair for media, or one port for RAS. `remoteAddress` is UNKNOWN_REMOTE_ADDRESS
    // when any remote party may send.
    virtual MediaMapping openMedia(const Endpoint& inside, uint32_t remoteAddress) = 0;

    // A TCP port for the H.245 connection of an inbound call; nullopt refuses.
    virtual std::optional<ControlMapping> openControl(const Endpoint& inside,
                                                      uint32_t remoteAddress) = 0;

    // TCP flows, by the inside and by the outside view; null when there is none.
    virtual HostMappingRecord* findInside(const Endpoint& inside, const Endpoint& remote) = 0;
    virtual HostMappingRecord* findOutside(const Endpoint& publicEndpoint,
                                           const Endpoint& remote) = 0;
};

} // namespace gateway
