#pragma once

#include "gateway/live/config.h"

#include <functional>
#include <string>

namespace gateway {

// Reads the configuration anew. Gives an empty text, or what is wrong with it.
using ConfigSource = std::function<std::string(LiveConfig& config)>;

// Runs the gateway until SIGTERM or SIGINT. SIGHUP asks `source` again and goes on with what it
// gives; a wrong configuration is reported and leaves things as they are. Gives an empty text after
// an orderly end, or why the gateway could not start or go on.
std::string runGateway(const ConfigSource& source);

// The rules that the gateway would make, as text for nft; nothing is applied. An address that is
// not known yet stands there as 0.0.0.0.
std::string describeRules(const LiveConfig& config);

} // namespace gateway
