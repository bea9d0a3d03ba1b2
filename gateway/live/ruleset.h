#pragma once

#include "gateway/live/config.h"

#include <string>

// The rules of the gateway's own nftables table, as text in nft's language. Nothing here talks to
// the kernel; what changes with every call are elements of its sets (table_sets.h).
namespace gateway {

// Chain in which the rule that queues a packet stands. That rule is not part of the text: which
// form it takes depends on the kernel.
constexpr const char* queueChain = "to_module";

// Set of private endpoints that send media; each stays for `activeTimeout` seconds after it did.
constexpr const char* activeSet = "active";
constexpr uint32_t activeTimeout = 3600;

enum class Transition : uint8_t {
    Replace, // drop a table that an earlier run may have left, and make a new one
    Refresh, // renew the rules; the sets and what is in them stay
};

// The whole table, its sets empty. `config` must have passed checkConfig.
std::string renderRuleset(const LiveConfig& config, uint32_t publicAddress, Transition transition);

// Empties the sets that the gateway fills.
std::string renderEmptySets(const LiveConfig& config);

// Rule text for kernels that copy packets to a log group: the first packets of a connection need
// not wait, since nothing in them can change.
std::string renderCopyRule(const LiveConfig& config);

// Rule text for kernels that know nft's own queue statement.
std::string renderQueueStatement(const LiveConfig& config);

} // namespace gateway
