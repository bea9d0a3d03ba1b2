#include "report/media_streams.h"

#include "locator/locator.h"
#include "locator/path_names.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

namespace report {
namespace {

using gateway::Endpoint;

// Media of a call may flow for so long after its release.
constexpr int64_t hangover = 1'000'000'000;

struct Told {
    bool control = false;
    Endpoint before;
    Endpoint after;
    size_t message = 0;
    uint32_t cause = 0;
};

// Numbers by endpoint: whoever sends the messages decides how many endpoints there are.
using Index = std::unordered_map<uint64_t, size_t>;

struct AllTold {
    std::vector<Told> own; // what the outside was told of private endpoints
    Index byBefore;
    std::set<uint64_t> theirs; // what private hosts were told
};

uint32_t causeAt(const LadderMessage& message, size_t offset) {
    for (const gateway::ReportedAddress& address : message.remaining) {
        if (address.offset == offset) {
            return address.cause;
        }
    }
    return 0;
}

Endpoint endpointAt(const std::vector<uint8_t>& octets, size_t offset) {
    uint64_t value = 0;
    for (size_t i = 0; i < 6 && offset + i < octets.size(); ++i) {
        value = value << 8 | octets[offset + i];
    }
    return {static_cast<uint32_t>(value >> 16), static_cast<uint16_t>(value)};
}

void gather(const LadderMessage& message, size_t number, const gateway::Network& inside,
            AllTold& all) {
    const gateway::ReportedMessage& content = message.content;
    const std::vector<uint8_t> after = content.octetsAfter();
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, gateway::locatedType(content.role), content.octets.data(),
                  content.octets.size(), placeKindBit(PlaceKind::address));
    while (nextPlace(walk, place)) {
        std::array<char, placePathCapacity> path{};
        placePath(walk, path.data(), path.size());
        const std::string_view name = path.data();
        const bool control = name.find(".mediaControlChannel") != std::string_view::npos;
        if (place.port == 0 || (!control && name.find(".mediaChannel") == std::string_view::npos)) {
            continue;
        }
        const Endpoint before{place.address, place.port};
        if (content.direction != H323NAT_SENT) {
            all.theirs.insert(FlowRuns::key(before));
        } else if (inside.contains(before.address)) {
            // What was told last counts.
            const Told told{control, before, endpointAt(after, place.offset), number,
                            causeAt(message, place.offset)};
            const auto [known, isNew] =
                all.byBefore.try_emplace(FlowRuns::key(before), all.own.size());
            (isNew ? all.own.emplace_back() : all.own[known->second]) = told;
        }
    }
}

StreamState stateOf(const MediaStream& stream, const gateway::Network& inside) {
    const bool unreachable = stream.told.port != 0 && inside.contains(stream.told.address) &&
                             !inside.contains(stream.remote.address);
    if (unreachable || (stream.lost.packets > 0 && stream.received.packets == 0)) {
        return StreamState::Void;
    }
    if (stream.sent.packets > 0) {
        return stream.received.packets > 0 ? StreamState::BothWays : StreamState::SentOnly;
    }
    return stream.received.packets > 0 ? StreamState::ReceivedOnly : StreamState::Silent;
}

bool comesBefore(const MediaStream& a, const MediaStream& b) {
    const auto key = [](const MediaStream& stream) {
        return std::array<uint64_t, 4>{stream.inside.address, stream.inside.port,
                                       stream.remote.address, stream.remote.port};
    };
    return key(a) < key(b);
}

} // namespace

std::vector<MediaStream> mediaStreams(const CallRecord& record, const gateway::Network& inside,
                                      const FlowRuns& flows) {
    AllTold all;
    for (size_t i = 0; i < record.messages.size(); ++i) {
        gather(record.messages[i], i, inside, all);
    }
    // Unmapped packets belong to the endpoint whose told address they were sent to.
    Index tellers;
    std::set<uint64_t> local;
    for (size_t i = 0; i < all.own.size(); ++i) {
        for (const Endpoint& end : {all.own[i].before, all.own[i].after}) {
            tellers.try_emplace(FlowRuns::key(end), i);
            local.insert(FlowRuns::key(end));
        }
    }
    std::vector<MediaStream> streams;
    std::map<std::pair<uint64_t, uint64_t>, size_t> numbers;
    std::set<uint64_t> seen;
    const auto streamOf = [&](const Told* told, const Endpoint& own,
                              const Endpoint& remote) -> MediaStream& {
        const auto [found, isNew] =
            numbers.try_emplace({FlowRuns::key(own), FlowRuns::key(remote)}, streams.size());
        if (!isNew) {
            return streams[found->second];
        }
        seen.insert(FlowRuns::key(own));
        MediaStream& stream = streams.emplace_back();
        stream.inside = own;
        stream.remote = remote;
        if (told != nullptr) {
            stream.control = told->control;
            stream.told = told->after;
            stream.teller = told->message;
            stream.leftCause = told->cause;
        } else {
            stream.control = own.port % 2 != 0;
        }
        return stream;
    };
    const int64_t end = record.ended == never ? INT64_MAX : record.ended + hangover;
    for (const FlowRun* const run : flows.find(local, all.theirs, record.start, end)) {
        const gateway::FlowId& flow = run->flow;
        const auto teller = tellers.find(FlowRuns::key(flow.local));
        const Told* const told = teller == tellers.end() ? nullptr : &all.own[teller->second];
        MediaStream& stream =
            streamOf(told, told == nullptr ? flow.local : told->before, flow.remote);
        stream.sent.add(run->sent);
        stream.received.add(run->received);
        stream.lost.add(run->lost);
    }
    for (const Told& told : all.own) {
        if (!seen.contains(FlowRuns::key(told.before))) {
            streamOf(&told, told.before, {});
        }
    }
    for (MediaStream& stream : streams) {
        stream.state = stateOf(stream, inside);
    }
    std::sort(streams.begin(), streams.end(), comesBefore);
    return streams;
}

} // namespace report
