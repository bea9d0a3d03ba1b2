#pragma once

#include <cstdint>
#include <string>

namespace gateway {

// Appends a rule to a chain of an ip table that hands every packet to the given queue through the
// xtables target NFQUEUE, and lets it pass when nobody listens. nft's language has no word for
// this, so the rule goes to the kernel as a netlink message. Gives an empty text, or what went
// wrong.
std::string appendXtQueueRule(const std::string& table, const std::string& chain,
                              uint16_t queueNumber);

} // namespace gateway
