#include "gateway/live/known_connections.h"

namespace gateway {

KnownConnections::Ages& KnownConnections::agesOf(const KnownConnection& connection) {
    return connection.acquaintance == Acquaintance::Answered ||
                   connection.acquaintance == Acquaintance::Begun
               ? unspoken_
               : spoken_;
}

const KnownConnection* KnownConnections::find(const FlowId& insideView) {
    const auto found = entries_.find(insideView);
    if (found == entries_.end()) {
        return nullptr;
    }
    Ages& ages = agesOf(found->second.connection);
    ages.splice(ages.end(), ages, found->second.age);
    return &found->second.connection;
}

void KnownConnections::set(const FlowId& insideView, const KnownConnection& connection) {
    forget(insideView);
    Ages& ages = agesOf(connection);
    if (ages.size() >= capacity) {
        forget(FlowId(ages.front()));
    }
    entries_.emplace(insideView, Entry{connection, ages.insert(ages.end(), insideView)});
}

void KnownConnections::forget(const FlowId& insideView) {
    const auto found = entries_.find(insideView);
    if (found != entries_.end()) {
        agesOf(found->second.connection).erase(found->second.age);
        entries_.erase(found);
    }
}

} // namespace gateway
