#include "gateway/live/known_connections.h"

namespace gateway {

KnownConnection* KnownConnections::find(const FlowId& insideView) {
    const auto found = entries_.find(insideView);
    if (found == entries_.end()) {
        return nullptr;
    }
    ages_.splice(ages_.end(), ages_, found->second.age);
    return &found->second.connection;
}

void KnownConnections::set(const FlowId& insideView, const KnownConnection& connection) {
    if (KnownConnection* const known = find(insideView)) {
        *known = connection;
        return;
    }
    if (entries_.size() >= capacity) {
        entries_.erase(ages_.front());
        ages_.pop_front();
    }
    entries_.emplace(insideView, Entry{connection, ages_.insert(ages_.end(), insideView)});
}

} // namespace gateway
