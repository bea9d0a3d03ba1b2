#include "gateway/live/set_transaction.h"

#include "gateway/live/nft_batch.h"

#include <linux/netfilter/nf_tables.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

constexpr size_t changesAtOnce = 256;
constexpr size_t octetsOfChange = 160; // at most, names included

void putData(nlmsghdr* message, uint16_t attribute, const uint8_t* octets, size_t count) {
    nlattr* data = mnl_attr_nest_start(message, attribute);
    mnl_attr_put(message, NFTA_DATA_VALUE, count, octets);
    mnl_attr_nest_end(message, data);
}

void putElement(nlmsghdr* message, const std::string& table, const SetElement& element,
                bool withValue) {
    const char* set = tableSets()[static_cast<size_t>(element.set)].name;
    mnl_attr_put_strz(message, NFTA_SET_ELEM_LIST_TABLE, table.c_str());
    mnl_attr_put_strz(message, NFTA_SET_ELEM_LIST_SET, set);
    nlattr* list = mnl_attr_nest_start(message, NFTA_SET_ELEM_LIST_ELEMENTS);
    nlattr* item = mnl_attr_nest_start(message, NFTA_LIST_ELEM);
    putData(message, NFTA_SET_ELEM_KEY, element.key.data(), element.keyOctets);
    if (withValue && element.valueOctets != 0) {
        putData(message, NFTA_SET_ELEM_DATA, element.value.data(), element.valueOctets);
    }
    mnl_attr_nest_end(message, item);
    mnl_attr_nest_end(message, list);
}

} // namespace

// 0, or an error number.
int SetTransaction::send(const std::string& table, const Change* changes, size_t count) {
    NftBatch batch((count + 2) * octetsOfChange, sequence_);
    for (size_t i = 0; i < count; ++i) {
        const bool add = changes[i].add;
        nlmsghdr* message =
            batch.put(add ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM, add ? NLM_F_CREATE : 0);
        putElement(message, table, changes[i].element, add);
        batch.next(message);
    }
    return batch.exchange(socket_, sequence_);
}

int SetTransaction::removeEach(const std::string& table, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        const int error = send(table, &change, 1);
        if (error != 0 && (change.add || error != ENOENT)) {
            return error;
        }
    }
    return 0;
}

std::string SetTransaction::commit(const std::string& table) {
    std::vector<Change> changes;
    changes.swap(changes_);
    int error = 0;
    for (size_t done = 0; error == 0 && done < changes.size(); done += changesAtOnce) {
        const std::vector<Change> part(
            changes.begin() + static_cast<std::ptrdiff_t>(done),
            changes.begin() +
                static_cast<std::ptrdiff_t>(std::min(done + changesAtOnce, changes.size())));
        error = send(table, part.data(), part.size());
        const bool removes =
            std::any_of(part.begin(), part.end(), [](const Change& change) { return !change.add; });
        if (error == ENOENT && removes) {
            error = removeEach(table, part);
        }
    }
    return error == 0 ? "" : std::strerror(error);
}

} // namespace gateway
