#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/config.h"

#include <span>
#include <string>

// The rules of the gateway's own nftables table, as text in nft's language. Nothing here talks to
// the kernel.
namespace gateway {

constexpr const char* tableName = "h323nat";

// Chain in which the rule that queues a packet stands. That rule is not part of the text: which
// form it takes depends on the kernel.
constexpr const char* queueChain = "to_module";

enum class Transition : uint8_t {
    Replace, // drop a table that an earlier run may have left, and make a new one
    Refresh, // keep the sets that the kernel fills; renew the rules and the maps
};

// One public port and where it leads.
struct PortForward {
    Protocol protocol = Protocol::Udp;
    uint16_t publicPort = 0;
    Endpoint inside;
    bool leaveFromPublicPort = false; // UDP: packets from `inside` leave from `publicPort`
};

// The whole table, with `forwards` as the elements of its maps. `config` must have passed
// checkConfig.
std::string renderRuleset(const LiveConfig& config, uint32_t publicAddress,
                          std::span<const PortForward> forwards, Transition transition);

// Commands that add or remove the elements of `forwards`, and nothing else.
std::string renderAddition(uint32_t publicAddress, std::span<const PortForward> forwards);
std::string renderRemoval(std::span<const PortForward> forwards);

// Command that leaves one connection of a private host to the kernel.
std::string renderForeign(const Endpoint& inside, const Endpoint& remote);

// Rule text for kernels that know nft's own queue statement.
std::string renderQueueStatement(uint16_t queueNumber);

} // namespace gateway
