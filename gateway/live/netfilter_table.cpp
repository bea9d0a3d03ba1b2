#include "gateway/live/netfilter_table.h"

#include "gateway/live/xt_queue_rule.h"

#include <nftables/libnftables.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace gateway {
namespace {

using nlohmann::json;

const std::string table = std::string("ip ") + tableName;

// One element of media_in as nft prints it: [port, {"concat": ["10.0.0.5", 5000]}].
std::optional<PortForward> forwardOf(const json& element) {
    if (!element.is_array() || element.size() != 2 || !element[0].is_number_unsigned() ||
        !element[1].contains("concat")) {
        return std::nullopt;
    }
    const json& target = element[1]["concat"];
    if (target.size() != 2 || !target[0].is_string() || !target[1].is_number_unsigned()) {
        return std::nullopt;
    }
    const auto address = parseAddress(target[0].get<std::string>());
    const auto publicPort = element[0].get<uint64_t>();
    const auto insidePort = target[1].get<uint64_t>();
    if (!address || publicPort > 65535 || insidePort > 65535) {
        return std::nullopt;
    }
    return PortForward{Protocol::Udp, static_cast<uint16_t>(publicPort),
                       Endpoint{*address, static_cast<uint16_t>(insidePort)}, false};
}

std::vector<PortForward> forwardsIn(const json& listing) {
    std::vector<PortForward> forwards;
    if (!listing.contains("nftables")) {
        return forwards;
    }
    for (const json& item : listing["nftables"]) {
        if (!item.contains("map") || !item["map"].contains("elem")) {
            continue;
        }
        for (const json& element : item["map"]["elem"]) {
            if (const auto forward = forwardOf(element)) {
                forwards.push_back(*forward);
            }
        }
    }
    return forwards;
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

std::vector<PortForward> NetfilterTable::readLeftover() {
    const json listing = json::parse(list("map " + table + " media_in"), nullptr, false);
    return listing.is_object() ? forwardsIn(listing) : std::vector<PortForward>();
}

uint64_t NetfilterTable::wantedPackets() {
    const json listing = json::parse(list("counter " + table + " shown"), nullptr, false);
    if (listing.is_object() && listing.contains("nftables")) {
        for (const json& item : listing["nftables"]) {
            if (item.contains("counter")) {
                return item["counter"].value("packets", uint64_t{0});
            }
        }
    }
    return 0;
}

std::string NetfilterTable::create(const LiveConfig& config, uint32_t publicAddress,
                                   std::span<const PortForward> forwards) {
    const std::string failure =
        run(renderRuleset(config, publicAddress, forwards, Transition::Replace));
    if (!failure.empty()) {
        return "cannot make the nftables table '" + std::string(tableName) + "': " + failure;
    }
    created_ = true;
    queueForm_ = "nft queue";
    const std::string noStatement = run(renderQueueStatement(config.queueNumber));
    if (noStatement.empty()) {
        return {};
    }
    queueForm_ = "xt NFQUEUE";
    const std::string noTarget = appendXtQueueRule(tableName, queueChain, config.queueNumber);
    if (noTarget.empty()) {
        return {};
    }
    return "this kernel queues no packets: nft's queue statement (nft_queue) failed with '" +
           noStatement + "' and the xtables target NFQUEUE (xt_NFQUEUE, nft_compat) with '" +
           noTarget + "'; load or enable one of them";
}

std::string NetfilterTable::refresh(const LiveConfig& config, uint32_t publicAddress,
                                    std::span<const PortForward> forwards) {
    return run(renderRuleset(config, publicAddress, forwards, Transition::Refresh));
}

std::string NetfilterTable::addForwards(uint32_t publicAddress,
                                        std::span<const PortForward> forwards) {
    return run(renderAddition(publicAddress, forwards));
}

std::string NetfilterTable::removeForwards(std::span<const PortForward> forwards) {
    return run(renderRemoval(forwards));
}

std::string NetfilterTable::leaveToKernel(const Endpoint& inside, const Endpoint& remote) {
    return run(renderForeign(inside, remote));
}

void NetfilterTable::remove() {
    run("add table " + table + "\ndelete table " + table + "\n");
    created_ = false;
}

} // namespace gateway
