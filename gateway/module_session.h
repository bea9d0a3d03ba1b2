#pragma once

#include "gateway/ipv4_packet.h"
#include "gateway/translator.h"
#include "include/h323nat.h"

#include <cstdint>
#include <span>

namespace gateway {

struct ModuleSettings {
    uint32_t publicAddress = 0;
    uint32_t publishedAddress = 0; // private host that accepts calls from outside; 0 for none
    bool lossless = true; // replace octets where they stand; otherwise encode whole messages anew
    bool fullScope = false;
    uint32_t calls = 0; // with fullScope: room for so many; 0 for the module's own number
};

// What the module tells while it looks at a packet. Records and their octets are valid during the
// call only. Nothing of it may call the session.
class ModuleObserver {
public:
    ModuleObserver() = default;
    ModuleObserver(const ModuleObserver&) = delete;
    ModuleObserver& operator=(const ModuleObserver&) = delete;
    virtual ~ModuleObserver() = default;

    virtual void onMessage(const H323ObservedMessage& message) = 0;
    virtual void onRewritten(const H323ObservedAddress& address) = 0;
    virtual void onLeft(const H323ObservedAddress& address) = 0;
    virtual void onCallBegan(const H323ObservedCall& call) = 0;
    virtual void onCallEnded(const H323ObservedCall& call) = 0;
    virtual void onAnnounced(const H323ObservedConnection& connection) = 0;
    virtual void onOver(const H323ObservedConnection& connection) = 0;
};

// Name and text of a cause for which an address stays, H323NAT_LEFT_...: "not-the-senders" and "not
// the sender's own address".
const char* leftCauseName(uint32_t cause);
const char* leftCauseText(uint32_t cause);

// The module, started with callbacks that lead to one Translator. The module's state is global,
// so a process has at most one session at a time, used from one thread.
class ModuleSession {
public:
    // Starts the module afresh. Throws std::runtime_error when another session lives, when the
    // loaded library is not the module, or when it cannot start. `translator` must outlive the
    // session.
    // So must `observer`, which may be null.
    ModuleSession(Translator& translator, const ModuleSettings& settings,
                  ModuleObserver* observer = nullptr);
    ModuleSession(const ModuleSession&) = delete;
    ModuleSession& operator=(const ModuleSession&) = delete;
    ~ModuleSession();

    // Hand a packet of kind Tcp or Udp, headers in network byte order, to the sending or the
    // receiving hook; the headers are in network byte order again afterwards. True when the module
    // rewrote octets of the payload: the checksum is then the caller's business.
    bool send(std::span<uint8_t> packet, const PacketLayout& layout);
    bool receive(std::span<uint8_t> packet, const PacketLayout& layout);

    // Names the published host again, as hosts may do at intervals; 0 for none.
    static void publish(uint32_t address);

    // The public address from now on, for hosts whose address can change.
    void setPublicAddress(uint32_t address) { context_.publicAddress = address; }

private:
    HostContext context_{};
};

} // namespace gateway
