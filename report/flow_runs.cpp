#include "report/flow_runs.h"

#include <algorithm>

namespace report {
namespace {

int64_t earlier(int64_t a, int64_t b) {
    return a == never || (b != never && b < a) ? b : a;
}

} // namespace

void PacketRun::add(int64_t time) {
    add({1, time, time});
}

void PacketRun::add(const PacketRun& other) {
    packets += other.packets;
    first = earlier(first, other.first);
    last = std::max(last, other.last);
}

int64_t FlowRun::first() const {
    return earlier(earlier(sent.first, received.first), lost.first);
}

int64_t FlowRun::last() const {
    return std::max({sent.last, received.last, lost.last});
}

uint64_t FlowRuns::epochOf(const gateway::FlowId& flow) const {
    const auto of = [this](uint32_t address) {
        const auto found = epochs_.find(address);
        return found == epochs_.end() ? 0 : found->second;
    };
    return of(flow.local.address) + of(flow.remote.address);
}

// Null when there are too many.
FlowRun* FlowRuns::runOf(const gateway::FlowId& flow) {
    const uint64_t epoch = epochOf(flow);
    auto current = current_.find(flow);
    if (current == current_.end() || runs_[current->second].epoch != epoch) {
        if (runs_.size() >= most_) {
            return nullptr;
        }
        const size_t number = runs_.size();
        runs_.push_back({flow, epoch, {}, {}, {}});
        current = current_.insert_or_assign(flow, number).first;
        byLocal_[key(flow.local)].push_back(number);
        byRemote_[key(flow.remote)].push_back(number);
    }
    return &runs_[current->second];
}

void FlowRuns::add(int64_t time, const gateway::PacketOutcome& outcome) {
    const gateway::FlowId& flow = outcome.insideView;
    const bool lost = outcome.verdict == gateway::Verdict::NoMapping;
    if (flow.protocol != gateway::Protocol::Udp ||
        (!lost && outcome.verdict != gateway::Verdict::Translated)) {
        return;
    }
    if (FlowRun* const run = runOf(flow)) {
        const bool sent = outcome.direction == gateway::Direction::Sent;
        (lost ? run->lost : sent ? run->sent : run->received).add(time);
    }
}

void FlowRuns::add(const gateway::FlowId& flow, const PacketRun& sent, const PacketRun& received) {
    if (FlowRun* const run = runOf(flow)) {
        run->sent.add(sent);
        run->received.add(received);
    }
}

std::vector<const FlowRun*> FlowRuns::find(const std::set<uint64_t>& local,
                                           const std::set<uint64_t>& remote, int64_t from,
                                           int64_t to) const {
    std::set<size_t> numbers;
    const auto gather = [&numbers](const Index& index, const std::set<uint64_t>& endpoints) {
        for (const uint64_t endpoint : endpoints) {
            const auto found = index.find(endpoint);
            if (found != index.end()) {
                numbers.insert(found->second.begin(), found->second.end());
            }
        }
    };
    gather(byLocal_, local);
    gather(byRemote_, remote);
    std::vector<const FlowRun*> result;
    for (const size_t number : numbers) {
        const FlowRun& run = runs_[number];
        if (run.first() <= to && run.last() >= from) {
            result.push_back(&run);
        }
    }
    return result;
}

} // namespace report
