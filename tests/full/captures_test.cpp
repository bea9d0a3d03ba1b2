// Recorded calls through the whole replay in the full scope: as they are, and with their segments
// cut, swapped, lost, sent again and joined in every way. What leaves is the same each time, and no
// private address is in it.
//
// H323NAT_PROOF=full takes every place instead of some.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "tests/full/replayed_capture.h"

using namespace captures;
using namespace gateway;

namespace {

constexpr uint16_t signallingPort = 1720;
constexpr size_t endpointSize = 6;

bool proveAll() {
    const char* wish = std::getenv("H323NAT_PROOF");
    return wish != nullptr && std::string(wish) == "full";
}

struct Capture {
    std::string name;
    bool published;
    friend void PrintTo(const Capture& capture, std::ostream* out) { *out << capture.name; }
};

class Captures : public testing::TestWithParam<Capture> {
protected:
    void SetUp() override {
        recorded_ = readFrames(GetParam().name);
        const Outcome first = replayed(recorded_, GetParam().published);
        frames_ = asLearnedOutside(recorded_, first, GetParam().published);
        expected_ = replayed(frames_, GetParam().published);
    }

    void expectTheSame(const Frames& frames) {
        const Outcome outcome = replayed(frames, GetParam().published);
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
    Outcome outcome = replayed(twice, GetParam().published);
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
