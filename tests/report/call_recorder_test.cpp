// What the recorder makes of events: which call they belong to, and whose media does not arrive.
#include "report/call_recorder.h"

#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <string>
#include <vector>

namespace {

using namespace report;
using gateway::Direction;
using gateway::Endpoint;
using gateway::Verdict;

constexpr gateway::Network inside{0x0A000000, 24};
constexpr int64_t second = 1'000'000'000;
const Endpoint signalling{0x0A000005, 40000};
const Endpoint control{0x0A000005, 40001};
const Endpoint party{0xCB007109, 1720};
const Endpoint partyControl{0xCB007109, 1721};
const Endpoint media{0x0A000005, 5000};
const Endpoint publicMedia{0xCB007101, 5000};
const Endpoint partyMedia{0xCB007109, 6000};

gateway::ReportedMessage message(const std::string& name, uint64_t call,
                                 uint32_t direction = H323NAT_SENT) {
    gateway::ReportedMessage message;
    message.role = H323NAT_ROLE_SIGNALLING;
    message.direction = direction;
    message.host = signalling;
    message.outside = party;
    message.name = name;
    message.call = call;
    return message;
}

// An openLogicalChannelAck in which the private host tells 10.0.0.5:5000 and 5001.
gateway::ReportedMessage acknowledgement(uint64_t call) {
    gateway::ReportedMessage result = message("openLogicalChannelAck", call);
    result.role = H323NAT_ROLE_H245;
    result.host = control;
    result.outside = partyControl;
    result.octets = {0x22, 0xC0, 0x00, 0x64, 0x02, 0x80, 0x13, 0x5C, 0x00, 0x00, 0x0A, 0x00, 0x00,
                     0x05, 0x13, 0x88, 0x00, 0x0A, 0x00, 0x00, 0x05, 0x13, 0x89, 0x01, 0x01, 0x00};
    return result;
}

constexpr uint32_t mediaOffset = 10;
constexpr uint32_t controlOffset = 17;

void translate(gateway::ReportedMessage& told) {
    told.rewritten.push_back({"mediaChannel", mediaOffset, media, publicMedia, 0});
    told.rewritten.push_back({"mediaControlChannel",
                              controlOffset,
                              {media.address, 5001},
                              {publicMedia.address, 5001},
                              0});
}

void addPackets(CallRecorder& recorder, int64_t time, unsigned count, Direction direction,
                Verdict verdict = Verdict::Translated) {
    for (unsigned i = 0; i < count; ++i) {
        const Endpoint& local = verdict == Verdict::NoMapping ? publicMedia : media;
        recorder.addPacket(
            time, {verdict, direction, {gateway::Protocol::Udp, local, partyMedia}, false, false});
    }
}

const MediaStream& streamOf(const CallRecord& record, const Endpoint& own) {
    static const MediaStream none;
    for (const MediaStream& stream : record.streams) {
        if (stream.inside == own) {
            return stream;
        }
    }
    ADD_FAILURE() << "no stream of " << gateway::toText(own);
    return none;
}

TEST(CallRecorder, MediaIsJudgedByWhatWasToldAndWhatFlowed) {
    struct Case {
        bool translated;
        unsigned sent;
        unsigned received;
        unsigned lost;
        StreamState state;
        const char* verdict;
    };
    for (const Case& c : {Case{true, 3, 4, 0, StreamState::BothWays, "translated"},
                          Case{true, 3, 4, 1, StreamState::BothWays, "translated"},
                          Case{true, 3, 0, 0, StreamState::SentOnly, "media one way"},
                          Case{true, 0, 4, 0, StreamState::ReceivedOnly, "media one way"},
                          Case{true, 3, 0, 2, StreamState::Void, "media into the void"},
                          Case{true, 0, 0, 0, StreamState::Silent, "translated"},
                          Case{false, 3, 4, 0, StreamState::Void, "media into the void"},
                          Case{false, 0, 0, 0, StreamState::Void, "media into the void"}}) {
        CallRecorder recorder({inside});
        recorder.addMessage(0, 1, message("setup", 1), {});
        gateway::ReportedMessage told = acknowledgement(1);
        std::vector<gateway::ReportedAddress> remaining;
        if (c.translated) {
            translate(told);
        } else {
            remaining.push_back(
                {"mediaChannel", mediaOffset, media, media, H323NAT_LEFT_NOT_LISTED});
        }
        recorder.addMessage(second, 2, told, remaining);
        addPackets(recorder, 2 * second, c.sent, Direction::Sent);
        addPackets(recorder, 2 * second, c.received, Direction::Received);
        addPackets(recorder, 2 * second, c.lost, Direction::Received, Verdict::NoMapping);
        const std::vector<CallRecord> records = recorder.finish();
        ASSERT_EQ(records.size(), 1U);
        const MediaStream& stream = streamOf(records[0], media);
        EXPECT_EQ(stream.state, c.state) << c.verdict;
        EXPECT_EQ((std::array{stream.sent.packets, stream.received.packets, stream.lost.packets}),
                  (std::array<uint64_t, 3>{c.sent, c.received, c.lost}));
        EXPECT_EQ(records[0].verdict, c.verdict);
        const bool explained =
            !records[0].findings.empty() && records[0].findings[0].severity == Severity::Trouble;
        EXPECT_EQ(explained, std::string(c.verdict) != "translated");
    }
}

// The ports of a call serve the next one a second later: each has its own packets.
TEST(CallRecorder, PacketsBelongToTheCallOfTheirTime) {
    CallRecorder recorder({inside});
    for (const uint64_t call : {1, 2}) {
        const auto start = static_cast<int64_t>(call * 10) * second;
        recorder.addMessage(start, call, message("setup", call), {});
        gateway::ReportedMessage told = acknowledgement(call);
        translate(told);
        recorder.addMessage(start + second, call, told, {});
        addPackets(recorder, start + 2 * second, static_cast<unsigned>(call), Direction::Sent);
        addPackets(recorder, start + 3 * second, 5, Direction::Received);
        recorder.addMessage(start + 9 * second, call, message("releaseComplete", call), {});
    }
    const std::vector<CallRecord> records = recorder.finish();
    ASSERT_EQ(records.size(), 2U);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(streamOf(records[i], media).sent.packets, i + 1);
        EXPECT_EQ(streamOf(records[i], media).received.packets, 5U);
        EXPECT_EQ(records[i].ended, records[i].start + 9 * second);
    }
}

// An admission before the call, its answer that names no call, and H.245 after the release.
TEST(CallRecorder, MessagesAroundACallBelongToIt) {
    CallRecorder recorder({inside});
    const auto ras = [](const char* name, uint32_t direction, const std::string& identifier) {
        gateway::ReportedMessage result = message(name, 0, direction);
        result.role = H323NAT_ROLE_RAS;
        result.callIdentifier = identifier;
        return result;
    };
    const std::string identifier(16, '\x5A');
    recorder.addMessage(0, 1, ras("registrationRequest", H323NAT_SENT, ""), {});
    recorder.addMessage(1, 2, ras("registrationConfirm", H323NAT_RECEIVED, ""), {});
    recorder.addMessage(2, 3, ras("admissionRequest", H323NAT_SENT, identifier), {});
    recorder.addMessage(3, 4, ras("admissionConfirm", H323NAT_RECEIVED, ""), {});
    gateway::ReportedMessage setup = message("setup", 7);
    setup.callIdentifier = identifier;
    recorder.addMessage(4, 5, setup, {});
    recorder.addMessage(5, 6, acknowledgement(7), {});
    recorder.addCall(6, {7, true, H323NAT_SENT, signalling, party, identifier, "alice", "", 16, 1});
    recorder.addMessage(7, 7, acknowledgement(0), {});
    const std::vector<CallRecord> records = recorder.finish();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_FALSE(records[0].isCall);
    EXPECT_EQ(records[0].messages.size(), 2U);
    EXPECT_TRUE(records[1].isCall);
    EXPECT_EQ(records[1].messages.size(), 5U);
    EXPECT_EQ(records[1].callingAlias, "alice");
    EXPECT_EQ(records[1].cause, 16U);
    EXPECT_EQ(records[1].ended, 6);
    EXPECT_EQ(records[1].outside, party);
}

TEST(CallRecorder, MappingsThatWaitInVainKeepNoneOut) {
    CallRecorder recorder({inside});
    using Kind = gateway::MappingRequest::Kind;
    for (uint16_t port = 10'000; port < 20'000; ++port) {
        recorder.addMapping(0, {Kind::Media, {media.address, port}, publicMedia, 0, true, false});
    }
    recorder.addMapping(1, {Kind::Media, media, publicMedia, 0, true, false});
    gateway::ReportedMessage told = acknowledgement(1);
    translate(told);
    recorder.addMessage(1, 1, told, {});
    const std::vector<CallRecord> records = recorder.finish();
    ASSERT_EQ(records.at(0).mappings.size(), 1U);
    EXPECT_EQ(records[0].mappings[0].request.inside, media);
}

// Whoever sends the messages decides how many endpoints they tell; nothing may be looked for in all
// of them again and again. Processor time, since machines are busy.
TEST(CallRecorder, ManyEndpointsTakeLittleTime) {
    constexpr unsigned count = 20'000;
    CallRecorder recorder({inside});
    for (unsigned i = 0; i < count; ++i) {
        gateway::ReportedMessage told = acknowledgement(1);
        for (const uint32_t offset : {mediaOffset, controlOffset}) {
            told.octets[offset + 4] = static_cast<uint8_t>((2 * i) >> 8);
            told.octets[offset + 5] = static_cast<uint8_t>(2 * i + (offset == mediaOffset ? 0 : 1));
        }
        recorder.addMessage(i, i, told, {});
    }
    const std::clock_t begin = std::clock();
    EXPECT_GT(recorder.finish().at(0).streams.size(), count);
    EXPECT_LT(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC, 8.0);
}

TEST(CallRecorder, KeepsNoMoreThanItIsToldTo) {
    RecorderSettings settings{inside};
    settings.mostMessages = 3;
    CallRecorder recorder(settings);
    for (int i = 0; i < 5; ++i) {
        recorder.addMessage(i, 1, message("facility", 1), {});
    }
    EXPECT_EQ(recorder.messagesNotKept(), 2U);
    EXPECT_EQ(recorder.finish().at(0).messages.size(), 3U);
}

} // namespace
