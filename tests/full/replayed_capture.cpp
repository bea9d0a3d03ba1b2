#include "tests/full/replayed_capture.h"

#include <algorithm>

#include "locator/locator.h"
#include "locator/path_names.h"

using namespace gateway;

#ifdef __SANITIZE_ADDRESS__
// The module keeps the records of each start, as its contract says. Visible: the sanitizer's
// library looks for it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:H323InitializeDLL";
}
#endif

namespace captures {

CapturedFrame cutOut(CapturedFrame like, size_t from, size_t to) {
    const Segment segment(like);
    const size_t begin = linkHeader + segment.layout.payloadOffset;
    const uint32_t sequence =
        sequenceNumber(segment.packet, segment.layout) + static_cast<uint32_t>(from);
    const size_t length = segment.layout.payloadOffset + (to - from);
    std::copy_n(like.octets.begin() + static_cast<ptrdiff_t>(begin + from), to - from,
                like.octets.begin() + static_cast<ptrdiff_t>(begin));
    like.octets.resize(linkHeader + length);
    like.wireLength = static_cast<uint32_t>(like.octets.size());
    uint8_t* ip = like.octets.data() + linkHeader;
    ip[2] = static_cast<uint8_t>(length >> 8);
    ip[3] = static_cast<uint8_t>(length);
    for (int index = 0; index < 4; ++index) {
        ip[segment.layout.ipHeaderLength + 4 + static_cast<size_t>(index)] =
            static_cast<uint8_t>(sequence >> (24 - 8 * index));
    }
    Segment made(like);
    recomputeChecksums(made.packet, made.layout);
    return like;
}

Frames readFrames(const std::string& name) {
    CaptureReader reader(std::string(H323NAT_SAMPLES) + "/" + name + ".pcap");
    Frames frames;
    for (CapturedFrame frame; reader.next(frame);) {
        const Segment segment(frame);
        const bool media = segment.layout.protocol == Protocol::Udp && segment.source.port >= 5000;
        if (!media) { // which is not what is tried here
            frames.push_back(frame);
        }
    }
    return frames;
}

namespace {

class Replayed final : public ReplayListener {
public:
    Outcome outcome;

    Replayed(const Frames& frames, bool published) {
        ReferenceHostSettings settings;
        settings.inside = {0x0A000000, 24};
        settings.publicAddress = publicAddress;
        settings.publishedAddress = published ? privateParty : 0;
        settings.fullScope = true;
        Replay replay(settings, 1, *this, [this](const CapturedFrame& frame) { take(frame); });
        for (CapturedFrame frame : frames) {
            replay.process(frame);
        }
        replay.finish();
        outcome.totals = replay.totals();
    }

private:
    void onMapping(const CapturedFrame&, const MappingRequest& request) override {
        const std::string kind = request.kind == MappingRequest::Kind::Media ? "udp " : "tcp ";
        outcome.mapped[kind + toText(request.inside)] = toText(request.publicEndpoint);
        EXPECT_TRUE(request.granted);
    }
    void onMessage(const CapturedFrame&, const ReportedMessage& message,
                   const std::vector<ReportedAddress>& remaining) override {
        ++outcome.messages;
        outcome.remaining += remaining.size();
        EXPECT_EQ(message.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD, 0U) << message.name;
    }
    // The outside ends tell connections apart, whatever port the router took.
    void take(const CapturedFrame& frame) {
        CapturedFrame left = frame;
        const Segment segment(left);
        EXPECT_TRUE(checksumsAreRight(segment.packet, segment.layout));
        EXPECT_EQ(segment.destination.address == privateParty, !segment.sent);
        const Endpoint& outside = segment.sent ? segment.destination : segment.source;
        const Endpoint& own = segment.sent ? segment.source : segment.destination;
        const bool tcp = segment.layout.protocol == Protocol::Tcp;
        auto& stream =
            outcome
                .octets[{(tcp ? "tcp " : "udp ") + toText(outside) + " " + std::to_string(own.port),
                         segment.sent}];
        uint32_t sequence = tcp ? sequenceNumber(segment.packet, segment.layout)
                                : static_cast<uint32_t>(stream.size());
        for (const uint8_t octet : segment.payload()) {
            const auto [known, fresh] = stream.insert({sequence++, octet});
            EXPECT_EQ(known->second, octet) << "sent again with another octet";
            ASSERT_TRUE(fresh || known->second == octet);
        }
    }
};

} // namespace

Outcome replayed(const Frames& frames, bool published) {
    return Replayed(frames, published).outcome;
}

Frames asLearnedOutside(const Frames& recorded, const Outcome& first, bool published) {
    Frames frames = recorded;
    std::map<std::string, std::string> mapped = first.mapped;
    if (published) {
        mapped["tcp 10.0.0.5:1720"] = "203.0.113.1:1720";
    }
    for (CapturedFrame& frame : frames) {
        const Segment segment(frame);
        if (segment.sent) {
            continue;
        }
        for (const auto& [inside, outside] : mapped) {
            const bool udp = inside.starts_with("udp");
            const auto colon = inside.find(':');
            const auto port = static_cast<uint16_t>(std::stoul(inside.substr(colon + 1)));
            const auto publicPort =
                static_cast<uint16_t>(std::stoul(outside.substr(outside.find(':') + 1)));
            const uint16_t ports = udp ? 2 : 1;
            for (uint16_t second = 0; second < ports; ++second) {
                const auto from = static_cast<uint16_t>(port + second);
                const auto to = static_cast<uint16_t>(publicPort + second);
                const Octets wanted = {
                    10, 0, 0, 5, static_cast<uint8_t>(from >> 8), static_cast<uint8_t>(from)};
                const auto payload = segment.payload();
                for (auto found = payload.begin();;) {
                    found = std::search(found, payload.end(), wanted.begin(), wanted.end());
                    if (found == payload.end()) {
                        break;
                    }
                    const Octets learned = {
                        203, 0, 113, 1, static_cast<uint8_t>(to >> 8), static_cast<uint8_t>(to)};
                    std::copy(learned.begin(), learned.end(), found);
                }
            }
        }
        recomputeChecksums(segment.packet, segment.layout);
    }
    return frames;
}

namespace {

void locate(LocatedType type, const Octets& octets, size_t from, size_t count, uint32_t sequence,
            std::vector<Place>& places) {
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, type, octets.data() + from, count, placeKindBit(PlaceKind::address));
    while (nextPlace(walk, place)) {
        char path[placePathCapacity];
        placePath(walk, path, sizeof path);
        places.push_back({sequence + static_cast<uint32_t>(from + place.offset),
                          {place.address, place.port},
                          path});
    }
    EXPECT_EQ(walk.status, LocateStatus::complete);
}

// The User-user element's content; count 0 when there is none.
std::pair<size_t, size_t> userInformation(const Octets& octets, size_t at, size_t end) {
    for (at += 3 + size_t{octets[at + 1]}; at < end;) {
        if (octets[at] == 0x7E) {
            const auto length = static_cast<size_t>(octets[at + 1] << 8 | octets[at + 2]);
            return {at + 4, length - 1};
        }
        at += (octets[at] & 0x80) != 0 ? 1 : 2 + size_t{octets[at + 1]};
    }
    return {at, 0};
}

} // namespace

std::vector<Place> placesOf(const StreamId& id, const std::map<uint32_t, uint8_t>& stream) {
    std::vector<Place> places;
    if (stream.empty()) {
        return places;
    }
    Octets octets;
    for (const auto& [sequence, octet] : stream) {
        octets.push_back(octet);
    }
    const uint32_t first = stream.begin()->first;
    const bool signalling =
        id.first.find(":1720 ") != std::string::npos || id.first.ends_with(" 1720");
    for (size_t at = 0; at + 4 <= octets.size();) {
        const auto length = static_cast<size_t>(octets[at + 2] << 8 | octets[at + 3]);
        if (signalling) {
            const auto [from, count] = userInformation(octets, at + 4, at + length);
            locate(LocatedType::userInformation, octets, from, count, first, places);
        } else {
            locate(LocatedType::systemControlMessage, octets, at + 4, length - 4, first, places);
        }
        at += length;
    }
    return places;
}

} // namespace captures
