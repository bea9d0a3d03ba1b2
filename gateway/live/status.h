#pragma once

#include "gateway/live/live_gateway.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace gateway {

// What an operator may ask about a running gateway.
struct StatusSource {
    const LiveGateway& gateway;
    const Counters& counters;
    LiveSeconds started = 0;
    LiveSeconds now = 0;
};

// The status as one JSON object; its members are described in h323nat-gateway(8). Lists are cut at
// `statusListLimit` entries, the totals are not.
constexpr size_t statusListLimit = 1000;
std::string statusJson(const StatusSource& source);

// The same for people, from the JSON text of a running gateway. Throws nlohmann::json::exception
// when the text is not such an object.
std::string statusText(const std::string& statusJson);

// The calls that ended last, newest first, for people; from the JSON text of a running gateway.
std::string callsText(const std::string& statusJson);

// "→ 250 ← 248  ": media packets of a call of the status, sent and received by its private host;
// empty when nobody counts them.
std::string mediaText(const nlohmann::json& call);

// Counters and gauges in the Prometheus text format, version 0.0.4.
std::string metricsText(const StatusSource& source);

} // namespace gateway
