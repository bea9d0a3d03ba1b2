#pragma once

#include "gateway/live/ruleset.h"
#include "gateway/live/set_transaction.h"

#include <memory>
#include <string>
#include <vector>

struct nft_ctx;

namespace gateway {

// The gateway's own nftables table in the kernel. No other table is ever touched. Functions that
// change the kernel give an empty text, or what went wrong in words for the operator.
class NetfilterTable {
public:
    NetfilterTable();
    ~NetfilterTable();
    NetfilterTable(const NetfilterTable&) = delete;
    NetfilterTable& operator=(const NetfilterTable&) = delete;

    // Forwards in a table of this name that an earlier run left behind; empty if there is none.
    // Elements that make no sense are skipped.
    std::vector<PortForward> readLeftover(const std::string& table);

    // Tells whether somebody listens to copies of packets; without this all of them are queued.
    void copyBeginnings(bool heard) { copiesHeard_ = heard; }

    // Makes the table, replacing one that was left behind, and the rule that queues packets: nft's
    // queue statement where the kernel has it, the xtables target NFQUEUE otherwise. Its sets are
    // empty.
    std::string create(const LiveConfig& config, uint32_t publicAddress);

    // Renews the rules in one transaction; the queueing rule and the sets stay.
    std::string refresh(const LiveConfig& config, uint32_t publicAddress);

    // Takes all elements out of the sets that the gateway fills.
    std::string emptySets(const LiveConfig& config);

    // Changes of the sets, made together by `commit`.
    void add(const SetElement& element) { changes_.add(element); }
    void remove(const SetElement& element) { changes_.remove(element); }
    void add(const PortForward& forward);
    void remove(const PortForward& forward);
    [[nodiscard]] bool hasChanges() const { return !changes_.isEmpty(); }
    void discard() { changes_.discard(); }
    std::string commit();

    // Packets that the rules wanted queued since the table was made; 0 when it cannot be read.
    uint64_t wantedPackets();

    // Removes the table. Also called by the destructor, if the table was made by this object.
    void remove();

    // "nft queue" or "xt NFQUEUE"; empty before create.
    [[nodiscard]] const std::string& queueForm() const { return queueForm_; }

    // Whether the first packets of a connection are copied, not queued.
    [[nodiscard]] bool copiesBeginnings() const { return copiesBeginnings_; }

private:
    std::string run(const std::string& commands);
    std::string list(const std::string& what);

    struct Release {
        void operator()(nft_ctx* context) const;
    };
    std::unique_ptr<nft_ctx, Release> context_;
    SetTransaction changes_;
    std::string name_;
    std::string queueForm_;
    bool copiesHeard_ = false;
    bool copiesBeginnings_ = false;
    bool created_ = false;
};

} // namespace gateway
