#include "gateway/live/live_gateway.h"

#include "gateway/live/live_roles.h"
#include "gateway/live/router_ports.h"

namespace gateway {
namespace {

ModuleSettings moduleSettings(const LiveConfig& config, uint32_t publicAddress) {
    ModuleSettings settings;
    settings.publicAddress =
        config.advertisedAddress != 0 ? config.advertisedAddress : publicAddress;
    settings.publishedAddress = config.firstPublished();
    settings.lossless = !config.strict;
    settings.fullScope = config.scope == TranslationScope::Full;
    settings.calls = config.calls;
    return settings;
}

} // namespace

LiveGateway::LiveGateway(const LiveConfig& config, uint32_t publicAddress, uint64_t seed,
                         NetfilterTable& table, Conntrack& conntrack, EventLog& log,
                         Counters& counters)
    : config_(config), seed_(seed), table_(table), conntrack_(conntrack), log_(log),
      counters_(counters), mappings_(config, seed, isFreeOnRouter),
      module_(*this, moduleSettings(config, publicAddress), this), hold_(config.hold),
      archive_(log) {
    archive_.configure(config);
    sides_.publicAddress = publicAddress;
}

std::string LiveGateway::start(const SavedState& before, LiveSeconds now) {
    const uint32_t address = sides_.publicAddress;
    size_t adopted = mappings_.adopt(table_.readLeftover(config_.table), address, now);
    adopted += mappings_.adopt(before.forwards, address, now);
    counters_.add(Cause::mappingsAdopted, adopted);
    std::string failure = restoreTable();
    if (failure.empty()) {
        log_.info("start", {{"inside", insideText(config_)},
                            {"outside", config_.outside},
                            {"public", toText(address)},
                            {"scope", config_.scope == TranslationScope::Full ? "full" : "listed"},
                            {"queue", std::to_string(config_.queueNumber)},
                            {"queue_form", table_.queueForm()},
                            {"beginnings", table_.copiesBeginnings() ? "copied" : "queued"},
                            {"adopted_mappings", std::to_string(adopted)}});
    }
    return failure;
}

std::string LiveGateway::restoreTable() {
    table_.discard();
    std::string failure = table_.create(config_, sides_.publicAddress);
    if (!failure.empty() || config_.dryRun) {
        return failure;
    }
    fillTable();
    failure = table_.commit();
    mappings_.lookForFlows();
    wantsSweep_ = true;
    return failure;
}

void LiveGateway::addPublished() {
    for (const PublishedHost& host : config_.published) {
        const Endpoint inside{host.address, callSignalPort};
        table_.add(PortForward{MappingKind::Control, host.publicPort, inside, 0, 0, true});
    }
    if (config_.publishT120 && config_.firstPublished() != 0) {
        table_.add(
            PortForward{MappingKind::Control, dataPort, {config_.firstPublished(), dataPort}, 0});
    }
}

// Everything that its sets have to hold.
void LiveGateway::fillTable() {
    addPublished();
    for (const LiveMapping& mapping : mappings_.all()) {
        for (const PortForward& forward : LiveMappings::forwardsOf(mapping)) {
            table_.add(forward);
        }
    }
    for (const auto& [endpoint, count] : expected_) {
        table_.add(elementOf(SetId::Expected, endpoint.endpoint));
    }
}

std::string LiveGateway::refillTable() {
    if (config_.dryRun) {
        return {};
    }
    const std::string failure = table_.emptySets(config_);
    fillTable();
    const std::string refused = table_.commit();
    return failure.empty() ? refused : failure;
}

std::string LiveGateway::reconfigure(const LiveConfig& config) {
    std::string failure = table_.refresh(config, sides_.publicAddress);
    if (!failure.empty()) {
        return failure;
    }
    const bool otherPublished =
        config.published != config_.published || config.publishT120 != config_.publishT120;
    if (config.firstPublished() != config_.firstPublished()) {
        ModuleSession::publish(config.firstPublished());
    }
    module_.setPublicAddress(moduleSettings(config, sides_.publicAddress).publicAddress);
    mappings_.configure(config);
    hold_.configure(config.hold);
    archive_.configure(config);
    config_ = config;
    return otherPublished ? refillTable() : "";
}

std::string LiveGateway::setSides(const RouterSides& sides) {
    const uint32_t before = sides_.publicAddress;
    const bool moved = sides.publicAddress != 0 && sides.publicAddress != before;
    sides_ = sides;
    if (!moved) {
        sides_.publicAddress = before;
        return {};
    }
    mappings_.setPublicAddress(before, sides.publicAddress);
    module_.setPublicAddress(moduleSettings(config_, sides.publicAddress).publicAddress);
    const std::string failure = table_.refresh(config_, sides.publicAddress);
    return failure.empty() ? refillTable() : failure;
}

void LiveGateway::hear(std::span<const PortForward> forwards, LiveSeconds now) {
    now_ = now;
    const size_t before = mappings_.all().size();
    for (const PortForward& forward : mappings_.hear(forwards, sides_.publicAddress, now)) {
        table_.add(forward);
    }
    counters_.add(Cause::mappingsAdopted, mappings_.all().size() - before);
    commit();
}

SavedState LiveGateway::state() const {
    return {seed_, mappings_.allForwards()};
}

void LiveGateway::close(const LiveMappings::Swept& swept) {
    for (const PortForward& forward : swept.forwards) {
        table_.remove(forward);
    }
    for (const LiveMapping& mapping : swept.ended) {
        counters_.add(Cause::mappingsEnded);
        log_.info("mapping-end", {{"kind", nameOf(mapping.kind)},
                                  {"inside", toText(mapping.inside)},
                                  {"public", toText(mapping.publicEndpoint)},
                                  {"seconds", std::to_string(now_ - mapping.opened)}});
    }
    for (const TrackedFlow& flow : swept.flows) {
        if (!config_.dryRun && conntrack_.remove(flow)) {
            counters_.add(Cause::flowsRemoved);
        }
    }
}

void LiveGateway::sweep(const FlowSurvey& survey, LiveSeconds now) {
    now_ = now;
    wantsSweep_ = false;
    close(mappings_.sweep(survey, now));
    commit();
    records_.sweep([&](const FlowId& flow) { return survey.isOpen(flow); }, now_);
}

FlowSurvey LiveGateway::survey() {
    FlowSurvey survey = mappings_.survey();
    calls_.ask(survey);
    records_.forEach([&](const FlowId& flow) { survey.add(flow); });
    return survey;
}

} // namespace gateway
