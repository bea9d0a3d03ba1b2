// Plays the steps of a script: packets, waiting, settings. What a step's ports of 0 stand for, who
// the module is and what must hold is the business of those that derive.
#pragma once

#include <map>
#include <tuple>

#include "fuzz/call_script.h"
#include "fuzz/script_host.h"
#include "nat/flow_key.h"

namespace fuzzing {

class ScriptPlayer {
public:
    ScriptPlayer() = default;
    ScriptPlayer(const ScriptPlayer&) = delete;
    ScriptPlayer& operator=(const ScriptPlayer&) = delete;
    virtual ~ScriptPlayer() = default;

    void play(const Step& step);

protected:
    /// The step's flow as the private party sends it, its ports filled in.
    [[nodiscard]] virtual FlowKey insideFlow(const Step& step) const = 0;

    /// Hands a packet of at most 65535 octets to the module.
    virtual void exchange(bool sent, const Octets& packet) = 0;

    /// Moves the clock, also back.
    virtual void wait(int32_t seconds) = 0;

    /// Publishes a private host; 0: none.
    virtual void publish(uint32_t address) = 0;

    virtual void apply(const Step& settings) { host.settings = settings.flags; }

    /// Each direction of a flow has a sequence number of its own, connections have no beginning.
    virtual void exchangeTcp(const Step& step);

    /// The step's segments from `expected` on, which stands behind them afterwards.
    void sendPieces(const Step& step, const FlowKey& inside, uint32_t& expected,
                    uint32_t acknowledgement);

    ScriptHost host;

private:
    void pass(bool sent, const Octets& packet);

    std::map<std::tuple<uint32_t, uint32_t, uint16_t, uint16_t>, uint32_t> sequences_;
};

} // namespace fuzzing
