// The host of the hook target: opens every mapping it is asked for, unless told otherwise, and
// remembers what it handed out, since nothing else may appear in a packet.
#pragma once

#include <deque>
#include <set>
#include <vector>

#include "fuzz/input.h"
#include "include/h323nat.h"
#include "nat/flow_key.h"

namespace fuzzing {

class ScriptHost {
public:
    static constexpr uint32_t publicAddress = 0xCB007101; // 203.0.113.1

    /// The table of callbacks, which answer for the newest host.
    static const HostCallbackTable callbacks;

    ScriptHost();
    ScriptHost(const ScriptHost&) = delete;
    ScriptHost& operator=(const ScriptHost&) = delete;

    /// The host translates this flow from now on. `inside` is as the private host sends it; its
    /// public port is the private one.
    void addFlow(const FlowKey& inside);

    /// Checks that the lists of media records which the module linked are whole.
    void requireWholeLists() const;

    /// For lossless rewriting: checks that every octet that differs between the two payloads, or
    /// packets, belongs to an address that the module had from the host or to the port behind it.
    void requireOnlyHandedOut(const Octets& before, const Octets& after) const;

    HostContext context{};
    uint8_t settings = 0; // HostSetting bits

    /// What the module may write into packets.
    std::set<uint32_t> addresses;
    std::set<uint16_t> ports;

private:
    struct Callbacks;

    struct Flow {
        FlowKey inside;
        HostMappingRecord* record;
    };

    HostMappingRecord* newRecord();
    void offer(uint32_t address, uint32_t port);

    std::deque<HostMappingRecord> records_;
    std::vector<Flow> flows_;
    uint16_t nextPort_ = 40000;
};

} // namespace fuzzing
