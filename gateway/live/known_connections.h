#pragma once

#include "gateway/endpoint.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

namespace gateway {

// How far the module knows a TCP connection of a private host.
enum class Acquaintance : uint8_t {
    Answered,   // a private host has accepted it, nothing was said yet: the module was not told
    Begun,      // the module saw a private host begin it, nothing was said yet
    Introduced, // the module saw its beginning
    Unknown,    // first seen in its middle
};

// Where the octets of the two directions begin.
struct FirstSequences {
    uint32_t sent = 0;
    uint32_t received = 0;
};

struct KnownConnection {
    Acquaintance acquaintance = Acquaintance::Unknown;
    FirstSequences first; // of one that is Answered
};

// The connections that were seen lately, by their inside view; those longest unseen are forgotten.
// Anybody may open connections to a private host that accepts calls, so one that has not spoken
// costs no more than a line here, and pushes out no other than such a one.
class KnownConnections {
public:
    static constexpr size_t capacity = 16384; // of those that have spoken, and of the others

    // The connection, which counts as seen now; null when it is not known.
    const KnownConnection* find(const FlowId& insideView);

    void set(const FlowId& insideView, const KnownConnection& connection);

private:
    using Ages = std::list<FlowId>; // longest unseen first

    struct Entry {
        KnownConnection connection;
        Ages::iterator age;
    };

    Ages& agesOf(const KnownConnection& connection);
    void forget(const FlowId& insideView);

    std::unordered_map<FlowId, Entry, FlowIdHash> entries_;
    Ages spoken_;
    Ages unspoken_;
};

} // namespace gateway
