#include "gateway/live/set_transaction.h"

#include "gateway/live/nft_batch.h"

#include <linux/netfilter/nf_tables.h>

#include <algorithm>
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

void beginElements(nlmsghdr* message, const std::string& table, SetId set) {
    mnl_attr_put_strz(message, NFTA_SET_ELEM_LIST_TABLE, table.c_str());
    mnl_attr_put_strz(message, NFTA_SET_ELEM_LIST_SET, tableSets()[static_cast<size_t>(set)].name);
}

void putElement(nlmsghdr* message, const SetElement& element, bool withValue) {
    nlattr* item = mnl_attr_nest_start(message, NFTA_LIST_ELEM);
    putData(message, NFTA_SET_ELEM_KEY, element.key.data(), element.keyOctets);
    if (withValue && element.valueOctets != 0) {
        putData(message, NFTA_SET_ELEM_DATA, element.value.data(), element.valueOctets);
    }
    mnl_attr_nest_end(message, item);
}

} // namespace

// 0, or an error number. Neighbours that do the same to the same set share a message.
int SetTransaction::send(const std::string& table, std::span<const Change> changes) {
    NftBatch batch((changes.size() + 2) * octetsOfChange, sequence_);
    for (size_t i = 0; i < changes.size();) {
        const bool add = changes[i].add;
        const SetId set = changes[i].element.set;
        nlmsghdr* message =
            batch.put(add ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM, add ? NLM_F_CREATE : 0);
        beginElements(message, table, set);
        nlattr* list = mnl_attr_nest_start(message, NFTA_SET_ELEM_LIST_ELEMENTS);
        for (; i < changes.size() && changes[i].add == add && changes[i].element.set == set; ++i) {
            putElement(message, changes[i].element, add);
        }
        mnl_attr_nest_end(message, list);
        batch.next(message);
    }
    return batch.exchange(socket_, sequence_);
}

int SetTransaction::removeEach(const std::string& table, std::span<const Change> changes) {
    for (const Change& change : changes) {
        const int error = send(table, {&change, 1});
        if (error != 0 && (change.add || error != ENOENT)) {
            return error;
        }
    }
    return 0;
}

// What is done to one set keeps its order; sets do not know each other.
std::string SetTransaction::commit(const std::string& table) {
    std::vector<Change> changes;
    changes.swap(changes_);
    std::stable_sort(changes.begin(), changes.end(), [](const Change& one, const Change& other) {
        return one.element.set < other.element.set;
    });
    const std::span<const Change> all(changes);
    int error = 0;
    for (size_t done = 0; error == 0 && done < all.size(); done += changesAtOnce) {
        const auto part = all.subspan(done, std::min(changesAtOnce, all.size() - done));
        error = send(table, part);
        const bool removes =
            std::any_of(part.begin(), part.end(), [](const Change& change) { return !change.add; });
        if (error == ENOENT && removes) {
            error = removeEach(table, part);
        }
    }
    return error == 0 ? "" : std::strerror(error);
}

} // namespace gateway
