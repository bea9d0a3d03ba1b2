#pragma once

#include <string>

namespace gateway {

// One gateway owns an nftables table: a second one must not replace it. The lock is a name in the
// network namespace's abstract sockets, so it ends with its process, however that ends.
class TableLock {
public:
    TableLock() = default;
    TableLock(const TableLock&) = delete;
    TableLock& operator=(const TableLock&) = delete;
    ~TableLock();

    // Gives an empty text, or who has it.
    std::string take(const std::string& table);

private:
    int descriptor_ = -1;
};

} // namespace gateway
