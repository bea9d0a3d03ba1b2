#pragma once

#include "gateway/live/netlink_socket.h"
#include "gateway/live/table_sets.h"

#include <span>
#include <string>
#include <vector>

namespace gateway {

// Changes of the elements of one table's sets, gathered and then made in one transaction. Costs the
// same however much else the machine's ruleset holds.
class SetTransaction {
public:
    void add(const SetElement& element) { changes_.push_back({element, true}); }
    void remove(const SetElement& element) { changes_.push_back({element, false}); }
    [[nodiscard]] bool isEmpty() const { return changes_.empty(); }
    void discard() { changes_.clear(); }

    // Makes the changes of each set in the order in which they were asked for, all or none. An
    // element that is to be removed and is not there is no failure. Gives an empty text, or what
    // went wrong.
    std::string commit(const std::string& table);

private:
    struct Change {
        SetElement element;
        bool add = true;
    };

    int send(const std::string& table, std::span<const Change> changes);
    int removeEach(const std::string& table, std::span<const Change> changes);

    std::vector<Change> changes_;
    NetlinkSocket socket_;
    uint32_t sequence_ = 1;
};

} // namespace gateway
