#include "gateway/flow_table.h"

#include "gateway/ipv4_packet.h"
#include "gateway/mapping_links.h"

#include <algorithm>

namespace gateway {
namespace {

// A media port needs a neighbour above it, whatever its parity.
constexpr uint16_t lastPairedPort = 65533;

uint16_t publicPortOf(const Binding& binding, uint16_t insidePort) {
    return static_cast<uint16_t>(binding.publicBase + (insidePort - binding.inside.port));
}

size_t indexOf(const Binding& binding, uint16_t insidePort) {
    return static_cast<size_t>(insidePort - binding.inside.port);
}

} // namespace

FlowTable::FlowTable(const FlowTableSettings& settings)
    : settings_(settings), tcpPorts_(settings.firstPort, settings.lastPort),
      udpPorts_(settings.firstPort, std::min(settings.lastPort, lastPairedPort)) {}

uint16_t FlowTable::baseOf(Protocol protocol, uint16_t port) {
    return protocol == Protocol::Udp ? static_cast<uint16_t>(port & ~1U) : port;
}

PortAllocator& FlowTable::portsOf(Protocol protocol) {
    return protocol == Protocol::Udp ? udpPorts_ : tcpPorts_;
}

FlowTable::Age FlowTable::ageOf(const Flow& flow) {
    if (flow.insideView.protocol == Protocol::Udp) {
        return UdpFlows;
    }
    return flow.closing ? ClosedFlows : TcpFlows;
}

Flow* FlowTable::findInside(const FlowId& insideView) {
    const auto found = byInsideView_.find(insideView);
    return found == byInsideView_.end() ? nullptr : &*found->second;
}

Flow* FlowTable::findOutside(const FlowId& outsideView) {
    const auto found = byOutsideView_.find(outsideView);
    return found == byOutsideView_.end() ? nullptr : &*found->second;
}

Flow* FlowTable::fromInside(const FlowId& insideView, Seconds now) {
    if (const auto found = byInsideView_.find(insideView); found != byInsideView_.end()) {
        touch(found->second, now);
        return &*found->second;
    }
    expire(now);
    const auto binding = bind(insideView.protocol, insideView.local, now);
    return binding ? addFlow(insideView, *binding, now) : nullptr;
}

Flow* FlowTable::fromOutside(const FlowId& outsideView, Seconds now) {
    if (const auto found = byOutsideView_.find(outsideView); found != byOutsideView_.end()) {
        touch(found->second, now);
        return &*found->second;
    }
    const uint16_t base = baseOf(outsideView.protocol, outsideView.local.port);
    const auto found =
        byPublicBase_.find({outsideView.protocol, {outsideView.local.address, base}});
    if (found == byPublicBase_.end()) {
        return nullptr;
    }
    FlowId insideView = outsideView;
    insideView.local = found->second->inside;
    insideView.local.port =
        static_cast<uint16_t>(insideView.local.port + (outsideView.local.port - base));
    return towardsInside(insideView, now);
}

Flow* FlowTable::towardsInside(const FlowId& insideView, Seconds now) {
    if (const auto found = byInsideView_.find(insideView); found != byInsideView_.end()) {
        touch(found->second, now);
        return &*found->second;
    }
    expire(now);
    const auto binding = findBinding(insideView.protocol, insideView.local);
    if (!binding || !(*binding)->open.at(indexOf(**binding, insideView.local.port))) {
        return nullptr;
    }
    return addFlow(insideView, *binding, now);
}

void FlowTable::noteTcpFlags(Flow& flow, uint8_t flags) {
    const bool wasClosing = flow.closing;
    if ((flags & tcpSyn) != 0) {
        flow.closing = false;
    } else if ((flags & (tcpFin | tcpReset)) != 0) {
        flow.closing = true;
    }
    if (flow.closing != wasClosing) {
        FlowList& from = flows_.at(wasClosing ? ClosedFlows : TcpFlows);
        FlowList& to = flows_.at(flow.closing ? ClosedFlows : TcpFlows);
        to.splice(to.end(), from, byInsideView_.at(flow.insideView));
    }
    if (flow.closing) {
        unlinkChildren(flow.record);
    }
}

std::optional<OpenedPair> FlowTable::openPair(const Endpoint& inside, Seconds now) {
    if (inside.port == UINT16_MAX) {
        return std::nullopt;
    }
    expire(now);
    const auto low = bind(Protocol::Udp, inside, now);
    if (!low) {
        return std::nullopt;
    }
    const Endpoint neighbour{inside.address, static_cast<uint16_t>(inside.port + 1)};
    const uint16_t publicPort = publicPortOf(**low, inside.port);
    if (neighbour.port % 2 == 0) {
        bindNeighbour(neighbour, static_cast<uint16_t>(publicPort + 1), now);
    }
    const auto high = findBinding(Protocol::Udp, neighbour);
    const bool paired = high && publicPortOf(**high, neighbour.port) == publicPort + 1;

    OpenedPair pair;
    pair.publicEndpoint = {settings_.publicAddress, publicPort};
    const size_t lowIndex = indexOf(**low, inside.port);
    pair.reused = (*low)->open.at(lowIndex);
    pair.first = &(*low)->records.at(lowIndex);
    open(*low, inside.port, now);
    if (paired) {
        open(*high, neighbour.port, now);
        pair.second = &(*high)->records.at(indexOf(**high, neighbour.port));
    }
    return pair;
}

std::optional<Endpoint> FlowTable::openPort(const Endpoint& inside, Seconds now, bool& reused) {
    expire(now);
    const auto binding = bind(Protocol::Tcp, inside, now);
    if (!binding) {
        return std::nullopt;
    }
    reused = (*binding)->open[0];
    open(*binding, inside.port, now);
    return Endpoint{settings_.publicAddress, (*binding)->publicBase};
}

bool FlowTable::publish(const Endpoint& inside) {
    if (findBinding(Protocol::Tcp, inside) || !tcpPorts_.takeExactly(inside.port)) {
        return false;
    }
    const auto binding = addBinding(Protocol::Tcp, inside, inside.port, 0);
    (*binding)->permanent = true;
    open(*binding, inside.port, 0);
    return true;
}

// The binding of an endpoint, made when there is none yet.
std::optional<FlowTable::BindingList::iterator>
FlowTable::bind(Protocol protocol, const Endpoint& inside, Seconds now) {
    if (const auto found = findBinding(protocol, inside)) {
        return found;
    }
    const Endpoint base{inside.address, baseOf(protocol, inside.port)};
    PortAllocator& ports = portsOf(protocol);
    const auto publicBase =
        protocol == Protocol::Udp ? ports.takePair(base.port) : ports.take(base.port);
    if (!publicBase) {
        return std::nullopt;
    }
    return addBinding(protocol, base, *publicBase, now);
}

std::optional<FlowTable::BindingList::iterator>
FlowTable::addBinding(Protocol protocol, const Endpoint& inside, uint16_t publicBase, Seconds now) {
    if (freeBindings_.empty()) {
        freeBindings_.emplace_back();
    }
    const auto binding = freeBindings_.begin();
    *binding = {};
    binding->home = &freeBindings_;
    moveTo(usedBindings_, binding);
    binding->protocol = protocol;
    binding->inside = inside;
    binding->publicBase = publicBase;
    binding->lastUse = now;
    for (size_t i = 0; i < binding->records.size(); ++i) {
        binding->records.at(i).insideAddress = inside.address;
        binding->records.at(i).insidePort = static_cast<uint16_t>(inside.port + i);
    }
    byInsideBase_.emplace(LocalId{protocol, inside}, binding);
    byPublicBase_.emplace(LocalId{protocol, {settings_.publicAddress, publicBase}}, binding);
    return binding;
}

std::optional<FlowTable::BindingList::iterator> FlowTable::findBinding(Protocol protocol,
                                                                       const Endpoint& inside) {
    const auto found =
        byInsideBase_.find({protocol, {inside.address, baseOf(protocol, inside.port)}});
    return found == byInsideBase_.end() ? std::nullopt : std::optional(found->second);
}

// Tries to give the even endpoint behind an odd port the public port behind that port's.
void FlowTable::bindNeighbour(const Endpoint& inside, uint16_t publicBase, Seconds now) {
    if (!findBinding(Protocol::Udp, inside) && udpPorts_.takePairExactly(publicBase)) {
        addBinding(Protocol::Udp, inside, publicBase, now);
    }
}

void FlowTable::open(BindingList::iterator binding, uint16_t insidePort, Seconds now) {
    binding->open.at(indexOf(*binding, insidePort)) = true;
    binding->lastUse = now;
    if (binding->permanent || binding->flows > 0) {
        return;
    }
    moveTo(idleBindings_, binding);
}

void FlowTable::dropBinding(BindingList::iterator binding) {
    for (HostMappingRecord& record : binding->records) {
        unlink(record);
    }
    byInsideBase_.erase({binding->protocol, binding->inside});
    byPublicBase_.erase({binding->protocol, {settings_.publicAddress, binding->publicBase}});
    if (binding->protocol == Protocol::Udp) {
        udpPorts_.releasePair(binding->publicBase);
    } else {
        tcpPorts_.release(binding->publicBase);
    }
    moveTo(freeBindings_, binding);
}

void FlowTable::moveTo(BindingList& list, BindingList::iterator binding) {
    list.splice(list.end(), *binding->home, binding);
    binding->home = &list;
}

Flow* FlowTable::addFlow(const FlowId& insideView, BindingList::iterator binding, Seconds now) {
    if (binding->flows++ == 0) {
        moveTo(usedBindings_, binding);
    }
    makeRoomForFlow();
    if (freeFlows_.empty()) {
        freeFlows_.emplace_back();
    }
    const auto flow = freeFlows_.begin();
    *flow = {};
    flow->insideView = insideView;
    flow->outsideView = insideView;
    flow->outsideView.local = {settings_.publicAddress,
                               publicPortOf(*binding, insideView.local.port)};
    flow->record.insideAddress = insideView.local.address;
    flow->record.insidePort = insideView.local.port;
    flow->binding = binding;
    FlowList& age = flows_.at(ageOf(*flow));
    age.splice(age.end(), freeFlows_, flow);
    flow->lastUse = now;
    byInsideView_.emplace(flow->insideView, flow);
    byOutsideView_.emplace(flow->outsideView, flow);
    return &*flow;
}

void FlowTable::dropFlow(FlowList::iterator flow) {
    unlinkChildren(flow->record);
    byInsideView_.erase(flow->insideView);
    byOutsideView_.erase(flow->outsideView);
    freeFlows_.splice(freeFlows_.end(), flows_.at(ageOf(*flow)), flow);

    const auto binding = flow->binding;
    if (--binding->flows > 0 || binding->permanent) {
        return;
    }
    binding->lastUse = flow->lastUse;
    moveTo(idleBindings_, binding);
    if (!binding->open[0] && !binding->open[1]) {
        dropBinding(binding);
    }
}

void FlowTable::touch(FlowList::iterator flow, Seconds now) {
    flow->lastUse = now;
    FlowList& age = flows_.at(ageOf(*flow));
    age.splice(age.end(), age, flow);
}

void FlowTable::expire(Seconds now) {
    const std::array<Seconds, AgeCount> limits = {settings_.udpIdle, settings_.tcpIdle,
                                                  settings_.closedTcpIdle};
    for (size_t age = 0; age < AgeCount; ++age) {
        FlowList& flows = flows_.at(age);
        while (!flows.empty() && now - flows.front().lastUse > limits.at(age)) {
            dropFlow(flows.begin());
        }
    }
    // Room for the two that the largest request adds.
    while (!idleBindings_.empty() && (now - idleBindings_.front().lastUse > settings_.openIdle ||
                                      idleBindings_.size() + 2 > settings_.maxOpenBindings)) {
        dropBinding(idleBindings_.begin());
    }
}

void FlowTable::makeRoomForFlow() {
    if (byInsideView_.size() < settings_.maxFlows) {
        return;
    }
    for (const Age age : {ClosedFlows, UdpFlows, TcpFlows}) {
        if (!flows_.at(age).empty()) {
            dropFlow(flows_.at(age).begin());
            return;
        }
    }
}

} // namespace gateway
