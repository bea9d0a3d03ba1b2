// Recorded calls through the whole replay in the full scope: as they are, and with their segments
// cut, swapped, lost, sent again and joined in every way. What leaves is the same each time, and no
// private address is in it.
//
// H323NAT_PROOF=full takes every place instead of some.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>

#include "gateway/capture_file.h"
#include "gateway/ipv4_packet.h"
#include "gateway/replay.h"
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

namespace {

using Octets = std::vector<uint8_t>;
using Frames = std::vector<CapturedFrame>;

constexpr size_t linkHeader = 14; // Ethernet
constexpr uint32_t privateParty = 0x0A000005;
constexpr uint32_t publicAddress = 0xCB007101;
constexpr uint16_t signallingPort = 1720;
constexpr size_t endpointSize = 6;

bool proveAll() {
    const char* wish = std::getenv("H323NAT_PROOF");
    return wish != nullptr && std::string(wish) == "full";
}

struct Segment {
    PacketLayout layout;
    std::span<uint8_t> packet;
    Endpoint source, destination;
    bool sent;

    explicit Segment(CapturedFrame& frame)
        : packet(std::span<uint8_t>(frame.octets).subspan(linkHeader)) {
        const PacketKind kind = classifyPacket(packet, layout);
        EXPECT_TRUE(kind == PacketKind::Tcp || kind == PacketKind::Udp);
        source = sourceOf(packet, layout);
        destination = destinationOf(packet, layout);
        sent = source.address == privateParty || source.address == publicAddress;
    }
    bool isTcpPayload() const {
        return layout.protocol == Protocol::Tcp && layout.payloadLength != 0;
    }
    std::span<uint8_t> payload() const {
        return packet.subspan(layout.payloadOffset, layout.payloadLength);
    }
};

// A frame like `like` with octets [from, to) of its payload.
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

// A direction of a TCP connection by its inside view, or all datagrams of a direction.
using StreamId = std::pair<std::string, bool>;

struct Outcome {
    std::map<StreamId, std::map<uint32_t, uint8_t>> octets; // by sequence number
    std::map<std::string, std::string> mapped; // inside to public endpoint, "tcp 10.0.0.5:47231"
    size_t remaining = 0;
    size_t messages = 0;
    ReplayTotals totals;
};

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

// --- What the locator finds in a stream.

struct Place {
    uint32_t sequence; // of its first octet
    Endpoint endpoint;
    std::string path;
};

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

// --- The proof

struct Capture {
    std::string name;
    bool published;
    friend void PrintTo(const Capture& capture, std::ostream* out) { *out << capture.name; }
};

// The recording knows no router: what comes from outside names the private endpoints. Here they are
// the public ones, as outside parties would have learned them.
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
            for (uint16_t second = 0; second < (udp ? 2 : 1); ++second) {
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

class Captures : public testing::TestWithParam<Capture> {
protected:
    void SetUp() override {
        recorded_ = readFrames(GetParam().name);
        const Outcome first = Replayed(recorded_, GetParam().published).outcome;
        frames_ = asLearnedOutside(recorded_, first, GetParam().published);
        expected_ = Replayed(frames_, GetParam().published).outcome;
    }

    void expectTheSame(const Frames& frames) {
        const Outcome outcome = Replayed(frames, GetParam().published).outcome;
        ASSERT_EQ(outcome.remaining, 0U);
        ASSERT_TRUE(outcome.octets == expected_.octets);
        ASSERT_EQ(outcome.messages, expected_.messages);
        ASSERT_EQ(outcome.mapped, expected_.mapped);
    }

    using Pieces = std::function<Frames(const CapturedFrame&, size_t length)>;
    Frames inPieces(const Pieces& pieces) const {
        Frames made;
        for (CapturedFrame frame : frames_) {
            const Segment segment(frame);
            if (segment.isTcpPayload()) {
                for (CapturedFrame& piece : pieces(frame, segment.layout.payloadLength)) {
                    made.push_back(std::move(piece));
                }
            } else {
                made.push_back(frame);
            }
        }
        return made;
    }

    Frames recorded_;
    Frames frames_;
    Outcome expected_;
};

TEST_P(Captures, UncutLeavesNoPrivateAddressAndChangesNothingElse) {
    // What was recorded, stream by stream.
    std::map<StreamId, std::map<uint32_t, uint8_t>> before;
    for (CapturedFrame frame : recorded_) {
        const Segment segment(frame);
        const Endpoint& outside = segment.sent ? segment.destination : segment.source;
        const Endpoint& own = segment.sent ? segment.source : segment.destination;
        if (segment.isTcpPayload()) {
            auto& stream =
                before[{"tcp " + toText(outside) + " " + std::to_string(own.port), segment.sent}];
            uint32_t sequence = sequenceNumber(segment.packet, segment.layout);
            for (const uint8_t octet : segment.payload()) {
                stream[sequence++] = octet;
            }
        }
    }
    EXPECT_EQ(expected_.remaining, 0U);
    EXPECT_GT(expected_.totals.rewritten, 0U);
    size_t own = 0;
    for (auto& [id, octets] : before) {
        const auto found = expected_.octets.find(id);
        ASSERT_NE(found, expected_.octets.end()) << id.first;
        const auto& after = found->second;
        ASSERT_EQ(after.size(), octets.size()) << id.first;
        for (const Place& place : placesOf(id, octets)) {
            if (place.endpoint.address != privateParty || place.endpoint.port == 0) {
                continue;
            }
            // What is received was recorded with the private endpoint: it is there again.
            if (!id.second) {
                continue;
            }
            ++own;
            Endpoint base = place.endpoint;
            std::string outside;
            for (const char* kind : {"tcp ", "udp "}) {
                if (const auto mapped = expected_.mapped.find(kind + toText(place.endpoint));
                    mapped != expected_.mapped.end()) {
                    outside = mapped->second;
                }
            }
            --base.port;
            if (const auto pair = expected_.mapped.find("udp " + toText(base));
                outside.empty() && pair != expected_.mapped.end()) {
                const size_t colon = pair->second.find(':');
                outside = pair->second.substr(0, colon + 1) +
                          std::to_string(std::stoul(pair->second.substr(colon + 1)) + 1);
            }
            if (outside.empty() && GetParam().published && place.endpoint.port == signallingPort) {
                outside = toText(Endpoint{publicAddress, signallingPort});
            }
            const auto at = [&](uint32_t index) { return after.at(place.sequence + index); };
            const Endpoint written = {
                static_cast<uint32_t>(at(0) << 24 | at(1) << 16 | at(2) << 8 | at(3)),
                static_cast<uint16_t>(at(4) << 8 | at(5))};
            EXPECT_EQ(toText(written), outside) << place.path;
            for (uint32_t index = 0; index < endpointSize; ++index) {
                octets[place.sequence + index] = after.at(place.sequence + index);
            }
        }
        EXPECT_TRUE(octets == after) << id.first; // no octet changed outside of places
    }
    EXPECT_GT(own, 0U);
}

TEST_P(Captures, CutAtEveryPlace) {
    const size_t step = proveAll() ? 1 : 7;
    for (size_t cut = 1; cut < 700; cut += step) {
        SCOPED_TRACE(cut);
        bool reached = false;
        expectTheSame(inPieces([&](const CapturedFrame& frame, size_t length) {
            if (cut >= length) {
                return Frames{frame};
            }
            reached = true;
            return Frames{cutOut(frame, 0, cut), cutOut(frame, cut, length)};
        }));
        ASSERT_FALSE(HasFatalFailure());
        if (!reached) {
            break;
        }
    }
}

TEST_P(Captures, CutAtEveryTwoPlacesOfShortMessages) {
    constexpr size_t shortest = 80;
    const size_t step = proveAll() ? 1 : 13;
    for (size_t first = 1; first < shortest; first += step) {
        for (size_t second = first + 1; second < shortest; second += step) {
            SCOPED_TRACE(std::to_string(first) + " " + std::to_string(second));
            expectTheSame(inPieces([&](const CapturedFrame& frame, size_t length) {
                return length > shortest || second >= length
                           ? Frames{frame}
                           : Frames{cutOut(frame, 0, first), cutOut(frame, first, second),
                                    cutOut(frame, second, length)};
            }));
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(Captures, OneOctetASegment) {
    expectTheSame(inPieces([](const CapturedFrame& frame, size_t length) {
        Frames pieces;
        for (size_t at = 0; at < length; ++at) {
            pieces.push_back(cutOut(frame, at, at + 1));
        }
        return pieces;
    }));
}

TEST_P(Captures, SegmentsSentTwice) {
    expectTheSame(inPieces([](const CapturedFrame& frame, size_t) {
        return Frames{frame, frame};
    }));
    // And much later.
    Frames twice;
    for (const CapturedFrame& frame : frames_) {
        twice.push_back(frame);
        if (twice.size() > 6) {
            CapturedFrame again = twice[twice.size() - 6];
            again.time = frame.time;
            if (Segment(again).isTcpPayload()) {
                twice.push_back(again);
            }
        }
    }
    Outcome outcome = Replayed(twice, GetParam().published).outcome;
    EXPECT_TRUE(outcome.octets == expected_.octets);
}

TEST_P(Captures, SwappedLostAndRepeated) {
    const size_t step = proveAll() ? 1 : 11;
    for (size_t cut = 1; cut < 700; cut += step) {
        bool reached = false;
        // The pieces that arrive, by their numbers: 0 up to the cut, 1 the rest, 2 both.
        for (const std::vector<int>& order :
             {std::vector<int>{1, 0}, {0, 0, 1}, {0, 2}, {1, 2}, {1, 1, 0, 0}, {0, 1, 2}}) {
            SCOPED_TRACE(std::to_string(cut) + " order " + std::to_string(order[0]) +
                         std::to_string(order[1]));
            expectTheSame(inPieces([&](const CapturedFrame& frame, size_t length) {
                if (cut >= length) {
                    return Frames{frame};
                }
                reached = true;
                Frames pieces;
                for (const int piece : order) {
                    pieces.push_back(
                        cutOut(frame, piece == 1 ? cut : 0, piece == 0 ? cut : length));
                }
                return pieces;
            }));
            ASSERT_FALSE(HasFatalFailure());
        }
        if (!reached) {
            break;
        }
    }
}

TEST_P(Captures, Joined) {
    // Payloads of one direction that follow each other become one segment.
    Frames joined;
    for (CapturedFrame frame : frames_) {
        const Segment segment(frame);
        if (segment.layout.protocol == Protocol::Tcp && segment.layout.payloadLength == 0 &&
            (tcpFlags(segment.packet, segment.layout) & (tcpSyn | tcpFin | tcpReset)) == 0) {
            continue; // acknowledgements stand between
        }
        if (!joined.empty() && segment.isTcpPayload()) {
            Segment before(joined.back());
            if (before.isTcpPayload() && before.source == segment.source &&
                before.destination == segment.destination &&
                sequenceNumber(before.packet, before.layout) + before.layout.payloadLength ==
                    sequenceNumber(segment.packet, segment.layout)) {
                const size_t length = before.layout.payloadLength;
                CapturedFrame& both = joined.back();
                both.octets.resize(linkHeader + before.layout.totalLength);
                both.octets.insert(both.octets.end(), segment.payload().begin(),
                                   segment.payload().end());
                const size_t all = both.octets.size() - linkHeader;
                both.octets[linkHeader + 2] = static_cast<uint8_t>(all >> 8);
                both.octets[linkHeader + 3] = static_cast<uint8_t>(all);
                both = cutOut(both, 0, length + segment.layout.payloadLength);
                continue;
            }
        }
        joined.push_back(frame);
    }
    EXPECT_LT(joined.size(), frames_.size());
    expectTheSame(joined);
}

INSTANTIATE_TEST_SUITE_P(All, Captures,
                         testing::Values(Capture{"h245", false}, Capture{"fast-h245", false},
                                         Capture{"fast-tun", false}, Capture{"gk-direct", false},
                                         Capture{"gk-routed", false}, Capture{"tun", false},
                                         Capture{"gk-in", false}, Capture{"in-h245", true},
                                         Capture{"in-fast-tun", true}),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
