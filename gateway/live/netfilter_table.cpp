#include "gateway/live/netfilter_table.h"

#include "gateway/live/nft_reader.h"
#include "gateway/live/xt_queue_rule.h"

#include <nftables/libnftables.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace gateway {
namespace {

using nlohmann::json;

std::optional<Endpoint> endpointOf(const json& element) {
    if (!element.is_object() || !element.contains("concat")) {
        return std::nullopt;
    }
    const json& parts = element["concat"];
    if (parts.size() != 2 || !parts[0].is_string() || !parts[1].is_number_unsigned() ||
        parts[1].get<uint64_t>() > 65535) {
        return std::nullopt;
    }
    const auto address = parseAddress(parts[0].get<std::string>());
    return address ? std::optional(Endpoint{*address, parts[1].get<uint16_t>()}) : std::nullopt;
}

// The elements of the one set or map of a listing.
std::vector<json> elementsIn(const std::string& listing) {
    const json parsed = json::parse(listing, nullptr, false);
    if (parsed.is_object() && parsed.contains("nftables")) {
        for (const json& item : parsed["nftables"]) {
            for (const char* kind : {"map", "set"}) {
                if (item.contains(kind) && item[kind].contains("elem")) {
                    return item[kind]["elem"];
                }
            }
        }
    }
    return {};
}

// [port, {"concat": ["10.0.0.5", 5000]}]
std::optional<PortForward> forwardOf(const json& element, MappingKind kind) {
    if (!element.is_array() || element.size() != 2 || !element[0].is_number_unsigned() ||
        element[0].get<uint64_t>() > 65535) {
        return std::nullopt;
    }
    const auto inside = endpointOf(element[1]);
    return inside ? std::optional(PortForward{kind, element[0].get<uint16_t>(), *inside, 0})
                  : std::nullopt;
}

// nft explains over several lines, quoting the commands; the operator needs the first.
std::string firstLine(const char* text) {
    const std::string whole = text == nullptr ? "" : text;
    const std::string line = whole.substr(0, whole.find('\n'));
    return line.empty() ? "nftables gave no reason" : line;
}

} // namespace

void NetfilterTable::Release::operator()(nft_ctx* context) const {
    nft_ctx_free(context);
}

NetfilterTable::NetfilterTable() : context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
    nft_ctx_buffer_error(context_.get());
    nft_ctx_buffer_output(context_.get());
}

NetfilterTable::~NetfilterTable() {
    if (created_) {
        remove();
    }
}

std::string NetfilterTable::run(const std::string& commands) {
    if (commands.empty() || nft_run_cmd_from_buffer(context_.get(), commands.c_str()) == 0) {
        return {};
    }
    return firstLine(nft_ctx_get_error_buffer(context_.get()));
}

// As JSON; empty when there is no such thing.
std::string NetfilterTable::list(const std::string& what) {
    nft_ctx_output_set_flags(context_.get(), NFT_CTX_OUTPUT_JSON);
    const bool listed = run("list " + what).empty();
    const char* text = nft_ctx_get_output_buffer(context_.get());
    nft_ctx_output_set_flags(context_.get(), 0);
    return listed && text != nullptr ? text : "";
}

std::vector<PortForward> NetfilterTable::readLeftover(const std::string& table) {
    const std::string ofTable = " ip " + table + " ";
    std::vector<Endpoint> ras;
    for (const json& element : elementsIn(list("set" + ofTable + "ras_hosts"))) {
        if (const auto endpoint = endpointOf(element)) {
            ras.push_back(*endpoint);
        }
    }
    std::vector<PortForward> forwards;
    for (const json& element : elementsIn(list("map" + ofTable + "media_in"))) {
        if (auto forward = forwardOf(element, MappingKind::Media)) {
            const bool isRas = std::find(ras.begin(), ras.end(), forward->inside) != ras.end();
            forward->kind = isRas ? MappingKind::Ras : MappingKind::Media;
            forwards.push_back(*forward);
        }
    }
    for (const json& element : elementsIn(list("map" + ofTable + "control_in"))) {
        if (const auto forward = forwardOf(element, MappingKind::Control)) {
            forwards.push_back(*forward);
        }
    }
    return forwards;
}

void NetfilterTable::add(const PortForward& forward) {
    for (const SetElement& element : elementsOf(forward)) {
        changes_.add(element);
    }
}

void NetfilterTable::remove(const PortForward& forward) {
    for (const SetElement& element : elementsOf(forward)) {
        changes_.remove(element);
    }
}

std::string NetfilterTable::commit() {
    return changes_.isEmpty() ? "" : changes_.commit(name_);
}

uint64_t NetfilterTable::wantedPackets() {
    return readCounter(name_, "shown");
}

std::string NetfilterTable::create(const LiveConfig& config, uint32_t publicAddress) {
    const std::string failure = run(renderRuleset(config, publicAddress, Transition::Replace));
    if (!failure.empty()) {
        return "cannot make the nftables table '" + config.table + "': " + failure;
    }
    name_ = config.table;
    created_ = true;
    copiesBeginnings_ = copiesHeard_ && run(renderCopyRule(config)).empty();
    queueForm_ = "nft queue";
    const std::string noStatement = run(renderQueueStatement(config));
    if (noStatement.empty()) {
        return {};
    }
    queueForm_ = "xt NFQUEUE";
    const std::string noTarget = appendXtQueueRule(config.table, queueChain, config.queueNumber);
    if (noTarget.empty()) {
        return {};
    }
    return "this kernel queues no packets: nft's queue statement (nft_queue) failed with '" +
           noStatement + "' and the xtables target NFQUEUE (xt_NFQUEUE, nft_compat) with '" +
           noTarget + "'; load or enable one of them";
}

std::string NetfilterTable::refresh(const LiveConfig& config, uint32_t publicAddress) {
    return run(renderRuleset(config, publicAddress, Transition::Refresh));
}

std::string NetfilterTable::emptySets(const LiveConfig& config) {
    return run(renderEmptySets(config));
}

void NetfilterTable::remove() {
    run("add table ip " + name_ + "\ndelete table ip " + name_ + "\n");
    created_ = false;
}

} // namespace gateway
