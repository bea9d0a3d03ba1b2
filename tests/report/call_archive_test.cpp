// The records of calls that a gateway keeps in files: whole, bounded, and captures of those in
// trouble.
#include "gateway/capture_file.h"
#include "report/call_archive.h"
#include "report/call_json.h"
#include "tests/support/scratch_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

using namespace report;
namespace fs = std::filesystem;

constexpr gateway::Network inside{0x0A000000, 24};
const gateway::Endpoint host{0x0A000005, 1720};
const gateway::Endpoint party{0xCB007109, 40000};
const std::vector<uint8_t> packet(60, 0x45);

LadderMessage message(bool leaks) {
    LadderMessage result;
    result.time = 1'700'000'000'000'000'123;
    result.content.role = H323NAT_ROLE_SIGNALLING;
    result.content.name = "setup";
    result.content.host = host;
    result.content.outside = party;
    result.content.octets = {1, 2, 0xFF};
    result.content.rewritten.push_back({"a.b", 1, host, party, 0});
    if (leaks) {
        result.remaining.push_back({"c.d", 2, host, host, H323NAT_LEFT_NO_PORT});
    }
    return result;
}

CallRecord known() {
    CallRecord record;
    record.callingAlias = "alice";
    record.host = host;
    record.outside = party;
    record.start = 1'700'000'000'000'000'000;
    record.ended = record.start + 5;
    record.cause = 16;
    record.verdict = "translated";
    return record;
}

size_t filesIn(const std::string& folder) {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

class CallArchiveTest : public testing::Test {
protected:
    void SetUp() override {
        settings.calls = scratchPath("calls");
        settings.troubled = scratchPath("troubled");
        settings.mostCalls = 3;
        archive.configure(settings);
    }
    void TearDown() override {
        fs::remove_all(settings.calls);
        fs::remove_all(settings.troubled);
    }

    ArchiveSettings settings;
    CallArchive archive;
};

TEST_F(CallArchiveTest, ARecordComesBackWhole) {
    archive.note(7, message(true), packet);
    archive.note(7, {1, {gateway::MappingRequest::Kind::Media, host, party, 0, true, false}});
    EXPECT_EQ(archive.update(7, known(), inside), "");
    EXPECT_EQ(archivedCall(settings.calls, 7).verdict, "private address kept");
    EXPECT_EQ(archive.end(7, known(), inside), "");
    const CallRecord record = archivedCall(settings.calls, 7);
    EXPECT_EQ(record.callingAlias, "alice");
    EXPECT_EQ(record.start, message(true).time);
    EXPECT_EQ(record.ended, record.start) << "not before the last message";
    EXPECT_EQ(record.cause, 16U);
    ASSERT_EQ(record.messages.size(), 1U);
    EXPECT_EQ(record.messages[0].content.octets, message(true).content.octets);
    EXPECT_EQ(record.messages[0].content.rewritten.at(0).path, "a.b");
    EXPECT_EQ(record.messages[0].remaining.at(0).cause, uint32_t{H323NAT_LEFT_NO_PORT});
    ASSERT_EQ(record.mappings.size(), 1U);
    EXPECT_EQ(record.mappings[0].request.publicEndpoint, party);
    EXPECT_EQ(callJson(record), callJson(archivedCall(settings.calls, 7)));
#ifndef _WIN32
    EXPECT_EQ(static_cast<unsigned>(fs::status(settings.calls).permissions()), 0700U);
#endif
    EXPECT_THROW(archivedCall(settings.calls, 8), std::runtime_error);
    for (const char* broken : {"", "[]", "{\"identifier\":3}", "{\"identifier\":\"\"}"}) {
        EXPECT_THROW(callFromJson(broken), std::runtime_error) << broken;
    }
}

TEST_F(CallArchiveTest, OnlyTheLastCallsStay) {
    for (uint64_t call = 1; call <= 5; ++call) {
        archive.note(call, message(true), packet);
        EXPECT_EQ(archive.end(call, known(), inside), "");
        EXPECT_EQ(archive.end(call, known(), inside), "") << "over already";
    }
    EXPECT_EQ(filesIn(settings.calls), 3U);
    EXPECT_EQ(filesIn(settings.troubled), 3U);
    EXPECT_NO_THROW(archivedCall(settings.calls, 5));
}

// Somebody may keep captures of his own in the folder that he names.
TEST_F(CallArchiveTest, FilesOfOthersMakeNoRoom) {
    fs::create_directory(settings.troubled);
    const std::string own = settings.troubled + "/evidence.pcapng";
    std::ofstream(own) << "mine";
    fs::last_write_time(own, fs::file_time_type::min());
    for (uint64_t call = 1; call <= 5; ++call) {
        archive.note(call, message(true), packet);
        EXPECT_EQ(archive.end(call, known(), inside), "");
    }
    EXPECT_TRUE(fs::exists(own));
    EXPECT_EQ(filesIn(settings.troubled), 4U);
}

TEST_F(CallArchiveTest, ACallInTroubleLeavesACaptureWithRemarks) {
    archive.note(1, message(false), packet);
    archive.note(2, message(true), packet);
    EXPECT_EQ(archive.end(1, known(), inside), "");
    EXPECT_EQ(archive.end(2, known(), inside), "");
    ASSERT_EQ(filesIn(settings.troubled), 1U) << "the translated one leaves none";
    const std::string path = fs::directory_iterator(settings.troubled)->path().string();
    EXPECT_TRUE(path.ends_with("20231114T221320Z-2.pcapng")) << path;
    gateway::CaptureReader reader(path);
    gateway::CapturedFrame frame;
    ASSERT_TRUE(reader.next(frame));
    EXPECT_EQ(frame.octets, packet);
    EXPECT_EQ(frame.time.nanoseconds, 123);
    EXPECT_FALSE(reader.next(frame));
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    for (const char* remark : {"private address kept", "setup\n10.0.0.5:1720 -> 203.0.113.9:40000",
                               "10.0.0.5:1720 stays in c.d: the public port has no neighbour"}) {
        EXPECT_NE(content.find(remark), std::string::npos) << remark;
    }
}

TEST_F(CallArchiveTest, WhatIsTooMuchIsLeftOut) {
    settings.mostMessages = 10;
    settings.mostOctets = 20'000;
    archive.configure(settings);
    for (int i = 0; i < 100; ++i) {
        archive.note(1, message(true), packet);
    }
    for (uint64_t call = 2; call < 1000; ++call) {
        archive.note(call, message(true), packet);
    }
    EXPECT_EQ(archive.end(1, known(), inside), "");
    EXPECT_EQ(archivedCall(settings.calls, 1).messages.size(), 10U);
    size_t kept = 0;
    for (uint64_t call = 2; call < 1000; ++call) {
        EXPECT_EQ(archive.end(call, known(), inside), "");
        kept += fs::exists(settings.calls + "/" + std::to_string(call) + ".json") ? 1 : 0;
    }
    EXPECT_GT(kept, 10U);
    EXPECT_LT(kept, 100U) << "20 KB hold no more";
    // Addresses count with their paths: a message tells thousands of them in few octets.
    LadderMessage crowded = message(false);
    crowded.content.left.assign(200, {std::string(100, 'p'), 1, host, party, 0});
    archive.note(1001, crowded, packet);
    EXPECT_EQ(archive.end(1001, known(), inside), "");
    EXPECT_THROW(archivedCall(settings.calls, 1001), std::runtime_error);
    archive.note(1000, message(true), packet);
    EXPECT_EQ(archive.end(1000, known(), inside), "");
    EXPECT_NO_THROW(archivedCall(settings.calls, 1000)) << "ended calls have given their room back";
}

} // namespace
