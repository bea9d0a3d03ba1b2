// `h323nat replay` as a user runs it, on the recorded calls of samples/.
#include "cli/commands.h"
#include "gateway/capture_file.h"
#include "gateway/ipv4_packet.h"
#include "gateway/link_layer.h"
#include "tests/cli/run_program.h"
#include "tests/gateway/packet_builder.h"
#include "tests/support/scratch_path.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace gateway;
using testing_cli::contents;
using testing_cli::Outcome;
using testing_cli::shellWord;
using testing_gateway::Octets;

constexpr uint32_t privateParty = 0x0A000005;
constexpr Network insideNetwork{0x0A000000, 24};
constexpr uint32_t publicAddress = 0xCB007101;
constexpr size_t ethernetHeader = 14;

std::string sample(const std::string& name) {
    return std::string(H323NAT_SAMPLES) + "/" + name + ".pcap";
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"replay", "--inside", "10.0.0.0/24", "--public", "203.0.113.1"});
    return testing_cli::runProgram(arguments);
}

std::vector<CapturedFrame> frames(const std::string& path) {
    CaptureReader reader(path);
    std::vector<CapturedFrame> result;
    CapturedFrame frame;
    while (reader.next(frame)) {
        result.push_back(frame);
    }
    return result;
}

// A pcap file of whole packets, by default raw IP.
void writeCapture(const std::string& path, const std::vector<Octets>& packets,
                  uint32_t linkType = 101, uint32_t magic = 0xA1B2C3D4, uint32_t cutAt = 65535) {
    std::ofstream file(path, std::ios::binary);
    const auto put = [&](uint32_t value) {
        file.write(reinterpret_cast<const char*>(&value), sizeof value);
    };
    for (const uint32_t value : {magic, 0x00040002U, 0U, 0U, 65535U, linkType}) {
        put(value);
    }
    uint32_t number = 0;
    for (const Octets& packet : packets) {
        const auto length = static_cast<uint32_t>(packet.size());
        const uint32_t held = std::min(length, cutAt);
        for (const uint32_t value : {1700000000U, ++number, held, length}) {
            put(value);
        }
        file.write(reinterpret_cast<const char*>(packet.data()), held);
    }
}

std::vector<std::string> publish(const std::string& name) {
    return name.starts_with("in-") ? std::vector<std::string>{"--publish", "10.0.0.5"}
                                   : std::vector<std::string>{};
}

class Sample : public testing::TestWithParam<const char*> {};

// The whole report, beside the capture. Its time stamps come from the capture.
TEST_P(Sample, JsonReportIsTheExpectedOne) {
    const std::string name = GetParam();
    auto arguments = publish(name);
    const std::string output = scratchPath("report.pcap");
    arguments.insert(arguments.end(), {sample(name), "-o", output, "--json"});
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output,
              contents(std::string(H323NAT_SAMPLES) + "/" + name + ".expected.jsonl"));
    std::filesystem::remove(output);
}

// In the router's output: no octets of signalling tell the private address, whatever they mean.
void expectNoPrivateAddress(const std::string& path) {
    static constexpr std::array<uint8_t, 4> privateOctets = {10, 0, 0, 5};
    for (const CapturedFrame& frame : frames(path)) {
        const auto packet = std::span<const uint8_t>(frame.octets).subspan(ethernetHeader);
        PacketLayout layout;
        const PacketKind kind = classifyPacket(packet, layout);
        ASSERT_TRUE(kind == PacketKind::Tcp || kind == PacketKind::Udp) << frame.number;
        EXPECT_TRUE(checksumsAreRight(packet, layout)) << frame.number;

        const bool sent = sourceOf(packet, layout).address == publicAddress;
        ASSERT_NE(sent, destinationOf(packet, layout).address == privateParty) << frame.number;
        const auto payload = packet.subspan(layout.payloadOffset, layout.payloadLength);
        EXPECT_EQ(sent && std::search(payload.begin(), payload.end(), privateOctets.begin(),
                                      privateOctets.end()) != payload.end(),
                  false)
            << frame.number;
    }
}

bool hasTshark() {
    return std::system("command -v tshark >/dev/null 2>&1") == 0;
}

std::string framesThatTsharkFinds(const std::string& filter, const std::string& capture) {
    const std::string found = scratchPath("tshark.txt");
    const std::string command = "tshark -r " + shellWord(capture) +
                                " -o tcp.check_checksum:TRUE -o udp.check_checksum:TRUE"
                                " -o ip.check_checksum:TRUE -Y '" +
                                filter + "' >" + shellWord(found) + " 2>/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::string result = contents(found);
    std::filesystem::remove(found);
    return result;
}

// The output shows each packet as it leaves the router, so the two directions of a connection have
// different private ends. tshark recognises H.245 by its connection: give it one end.
void writeAsSeenOutside(const std::string& capture, const std::string& path) {
    const CaptureReader reader(capture);
    CaptureWriter writer(path, reader);
    for (CapturedFrame& frame : frames(capture)) {
        const auto packet = std::span<uint8_t>(frame.octets).subspan(ethernetHeader);
        PacketLayout layout;
        classifyPacket(packet, layout);
        Endpoint end = destinationOf(packet, layout);
        if (end.address == privateParty) {
            end.address = publicAddress;
            replaceDestination(packet, layout, end);
        }
        writer.write(frame);
    }
    writer.finish();
}

TEST_P(Sample, LeavesNoPrivateAddressInATranslatedField) {
    const std::string name = GetParam();
    const std::string output = scratchPath(name + ".pcap");
    auto arguments = publish(name);
    arguments.insert(arguments.end(), {sample(name), "-o", output});
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0);
    expectNoPrivateAddress(output);

    const auto before = frames(sample(name));
    const auto after = frames(output);
    ASSERT_EQ(before.size(), after.size());
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(before[i].time.seconds, after[i].time.seconds);
        EXPECT_EQ(before[i].time.nanoseconds, after[i].time.nanoseconds);
        EXPECT_EQ(before[i].octets.size(), after[i].octets.size());
    }

    if (hasTshark()) {
        const std::string wrongSums = "tcp.checksum.status == 0 || udp.checksum.status == 0 ||"
                                      " ip.checksum.status == 0";
        EXPECT_EQ(framesThatTsharkFinds(wrongSums, output), "");
        const std::string oneSided = scratchPath("one_sided.pcap");
        writeAsSeenOutside(output, oneSided);
        EXPECT_NE(framesThatTsharkFinds("h225", oneSided), "");
        const std::string wrong =
            "_ws.malformed || (ip.src == 203.0.113.1 &&"
            " ((h245.openLogicalChannelAck_element && h245.ip4_network == 10.0.0.5) ||"
            " ((h225.gatekeeperRequest_element || h225.registrationRequest_element) &&"
            " h225.ipV4 == 10.0.0.5)))";
        EXPECT_EQ(framesThatTsharkFinds(wrong, oneSided), "");
        std::filesystem::remove(oneSided);
    }
    std::filesystem::remove(output);
}

INSTANTIATE_TEST_SUITE_P(All, Sample,
                         testing::Values("h245", "fast-h245", "fast-tun", "gk-direct", "gk-routed",
                                         "in-h245", "in-fast-tun", "tun", "gk-in"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

const Endpoint inside{privateParty, 3000};
const Endpoint outside{0xCB007109, 443};

// TLS-like and random payloads, media, what the router passes on untouched: no payload changes, and
// what is not translated does not change at all.
TEST(Replay, CaptureWithoutH323KeepsEveryPayload) {
    using testing_gateway::tcp;
    using testing_gateway::udp;
    Octets fragment = udp(inside, outside, Octets(64, 0x55));
    fragment[6] = 0x20;
    Octets icmp = udp(inside, outside, Octets(64, 0x55));
    icmp[9] = 1;
    Octets ipv6(60, 0x11);
    ipv6[0] = 0x60;
    std::vector<Octets> packets = {fragment, icmp, ipv6};
    for (uint32_t i = 0; i < 200; ++i) {
        Octets payload(size_t{i} * 7);
        for (size_t at = 0; at < payload.size(); ++at) {
            payload[at] = static_cast<uint8_t>(at * 31 + size_t{i} * 17);
        }
        packets.push_back(tcp(inside, outside, i * 5000, 0x18, payload));
        packets.push_back(tcp(outside, inside, i * 5000, 0x18, payload));
        packets.push_back(udp(inside, {outside.address, 53}, payload));
        packets.push_back(udp({outside.address, 53}, inside, payload));
    }
    const std::string input = scratchPath("plain.pcap");
    const std::string output = scratchPath("plain_out.pcap");
    writeCapture(input, packets);
    const Outcome outcome = run({input, "-o", output, "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << "summary only";
    EXPECT_NE(outcome.output.find("\"fragments\":1,\"otherProtocols\":1,\"notIpv4\":1"),
              std::string::npos)
        << outcome.output;

    const auto after = frames(output);
    ASSERT_EQ(after.size(), packets.size());
    for (size_t i = 0; i < packets.size(); ++i) {
        PacketLayout layout;
        const PacketKind kind = classifyPacket(packets[i], layout);
        const bool translated = kind == PacketKind::Tcp || kind == PacketKind::Udp;
        const auto from = static_cast<std::ptrdiff_t>(translated ? layout.payloadOffset : 0);
        EXPECT_TRUE(std::equal(packets[i].begin() + from, packets[i].end(),
                               after[i].octets.begin() + from, after[i].octets.end()))
            << i;
        EXPECT_EQ(translated && after[i].octets == packets[i],
                  translated && destinationOf(packets[i], layout).address == privateParty)
            << i;
    }
    std::filesystem::remove(input);
    std::filesystem::remove(output);
}

// A GatekeeperRequest that ends behind its address.
TEST(Replay, WhatMakesNoSenseIsToldWithItsFrame) {
    const std::string input = scratchPath("cut_message.pcap");
    writeCapture(input, {testing_gateway::udp(inside, outside, Octets(9)),
                         testing_gateway::udp({privateParty, 1719}, {outside.address, 1719},
                                              {0x02, 0x20, 0x56, 0xBD, 0x06, 0x00, 0x08,
                                               0x91, 0x4A, 0x00, 0x07, 0x00, 0x0A, 0x00,
                                               0x00, 0x05, 0x06, 0xB7, 0x22, 0xC0})});
    EXPECT_NE(run({input, "-o", "/dev/null"}).output.find("frame 2"), std::string::npos);
    EXPECT_NE(run({input, "-o", "/dev/null"}).output.find("unread    gatekeeperRequest: makes no"),
              std::string::npos);
    EXPECT_NE(
        run({input, "-o", "/dev/null", "--json"}).output.find("{\"type\":\"unread\",\"frame\":2"),
        std::string::npos);
    std::filesystem::remove(input);
}

// Programs are written by the manual.
TEST(Replay, TheManualHasEveryField) {
    const std::string manual = contents(H323NAT_MANUAL);
    const std::function<void(const nlohmann::json&)> check = [&](const nlohmann::json& value) {
        for (const auto& [name, member] : value.items()) {
            EXPECT_TRUE(value.is_array() || manual.find(name) != std::string::npos) << name;
            if (member.is_structured()) {
                check(member);
            }
        }
    };
    std::istringstream report(
        run({sample("tun"), "-o", "/dev/null", "--json", "--scope", "listed"}).output);
    for (std::string line; std::getline(report, line);) {
        check(nlohmann::json::parse(line));
    }
    for (const char* command : {"decode", "locate"}) {
        const std::string output =
            testing_cli::runProgram({command, "--json", sample("tun"), sample("h245")}).output;
        check(nlohmann::json::parse(output));
    }
}

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// What a browser makes of it is the business of tests/report/page_test.py.
TEST(Replay, PageHasEveryMessageAndSaysWhoHearsNothing) {
    const std::string page = scratchPath("page.html");
    const Outcome outcome = run({sample("in-fast-tun"), "--report", page, "--scope", "listed",
                                 "--publish", "10.0.0.5", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("\"messages\":5,"), std::string::npos) << outcome.output;
    const std::string html = contents(page);
    EXPECT_EQ(countOf(html, "<g class=\"message"), 5U);
    EXPECT_EQ(countOf(html, "data-state=\"into the void\""), 2U) << "media and RTCP";
    EXPECT_NE(html.find("203.0.113.9 was told to send media to 10.0.0.5:5000 (connect, frame 10)"),
              std::string::npos);
    EXPECT_NE(html.find("10.0.0.5 hears nothing."), std::string::npos);
    EXPECT_EQ(countOf(html, "<script src"), 0U);
    std::filesystem::remove(page);
}

// The same rules, the other write-back: whole messages encoded anew, so octets beyond the addresses
// differ.
TEST(Replay, StrictEncodesAnew) {
    const std::string lossless = scratchPath("lossless.pcap");
    const std::string strict = scratchPath("strict.pcap");
    EXPECT_EQ(run({sample("gk-direct"), "-o", lossless}).status, 0);
    const Outcome outcome = run({sample("gk-direct"), "-o", strict, "--strict"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("gatekeeperRequest.rasAddress 10.0.0.5:1719 → 203.0.113.1:1719"),
              std::string::npos)
        << outcome.output;
    EXPECT_EQ(contents(strict).size(), contents(lossless).size());
    EXPECT_NE(contents(strict), contents(lossless));
    std::filesystem::remove(lossless);
    std::filesystem::remove(strict);
}

TEST(Replay, DamagedCaptureNamesTheFrameAndKeepsWhatWasReplayed) {
    const std::string whole = contents(sample("h245"));
    const std::string input = scratchPath("cut.pcap");
    const std::string output = scratchPath("cut_out.pcap");
    writeFile(input, whole.substr(0, whole.size() - 10));
    const size_t count = frames(sample("h245")).size();
    const Outcome outcome = run({input, "-o", output});
    EXPECT_EQ(outcome.status, cli::exitFaults);
    EXPECT_NE(outcome.errors.find(input + ": frame " + std::to_string(count)), std::string::npos)
        << outcome.errors;
    EXPECT_EQ(frames(output).size(), count - 1);
    EXPECT_NE(outcome.output.find(std::to_string(count - 1) + " packets"), std::string::npos);

    // A length in the middle of the file that no frame can have.
    std::string damaged = whole;
    damaged.replace(24 + 8, 4, "\xFF\xFF\xFF\x7F");
    writeFile(input, damaged);
    const Outcome second = run({input, "-o", output});
    EXPECT_EQ(second.status, cli::exitFaults);
    EXPECT_NE(second.errors.find("frame 1 "), std::string::npos) << second.errors;
    std::filesystem::remove(input);
    std::filesystem::remove(output);
}

TEST(Replay, WhatCannotBeReplayedIsNamed) {
    const std::string input = scratchPath("other.pcap");
    const std::string output = scratchPath("other_out.pcap");
    writeCapture(input, {}, 127);
    struct Case {
        std::vector<std::string> arguments;
        const char* message;
    };
    const std::string ok = sample("h245");
    for (const Case& c :
         {Case{{"/nonexistent.pcap", "-o", output}, "/nonexistent.pcap: cannot be opened"},
          Case{{std::string(H323NAT_SAMPLES) + "/README.md", "-o", output}, "not a pcap"},
          Case{{input, "-o", output}, "is not supported; use Ethernet, raw IP"},
          Case{{ok, "-o", "/nonexistent/out.pcap"}, "/nonexistent/out.pcap"},
          Case{{ok, "-o", ok}, "overwrite the input"},
          Case{{ok, "--report", ok}, "overwrite the input"},
          Case{{ok, "--report", "/nonexistent/page.html"}, "/nonexistent/page.html: cannot be"},
          Case{{ok}, "name the file to write"},
          Case{{ok, "-o", output, "--publish", "10.0.1.5"}, "--publish 10.0.1.5"},
          Case{{ok, "-o", output, "--publish", "10.0.0"}, "10.0.0 is no IPv4 address"}}) {
        const Outcome outcome = run(c.arguments);
        EXPECT_EQ(outcome.status, cli::exitUnusable);
        EXPECT_NE(outcome.errors.find(c.message), std::string::npos) << outcome.errors;
    }
    EXPECT_FALSE(contents(ok).empty());
    std::filesystem::remove(input);
    std::filesystem::remove(output);
}

// The same call in other wrappings gives the same report; nanoseconds stay.
TEST(Replay, LinkTypesAndResolutions) {
    std::vector<Octets> raw;
    for (const CapturedFrame& frame : frames(sample("fast-tun"))) {
        raw.emplace_back(frame.octets.begin() + ethernetHeader, frame.octets.end());
    }
    struct Wrapping {
        uint32_t linkType;
        Octets header;
    };
    Octets ethernet(12, 2);
    Octets tagged = ethernet;
    ethernet.insert(ethernet.end(), {0x08, 0x00});
    tagged.insert(tagged.end(), {0x88, 0xA8, 0, 1, 0x81, 0x00, 0, 2, 0x08, 0x00});
    Octets cooked(16, 0);
    cooked[14] = 8;
    Octets cookedV2(20, 0);
    cookedV2[0] = 8;
    const std::string input = scratchPath("wrapped.pcap");
    const std::string output = scratchPath("wrapped_out.pcap");
    std::string expected;
    for (const Wrapping& wrapping : {Wrapping{101, {}}, Wrapping{1, ethernet}, Wrapping{1, tagged},
                                     Wrapping{113, cooked}, Wrapping{276, cookedV2}}) {
        std::vector<Octets> wrapped;
        for (const Octets& packet : raw) {
            wrapped.push_back(wrapping.header);
            wrapped.back().insert(wrapped.back().end(), packet.begin(), packet.end());
        }
        writeCapture(input, wrapped, wrapping.linkType, 0xA1B23C4D);
        const Outcome outcome = run({input, "-o", output});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        expected = expected.empty() ? outcome.output : expected;
        EXPECT_EQ(outcome.output, expected) << wrapping.linkType;
        EXPECT_NE(expected.find("setup.fastStart["), std::string::npos);
        EXPECT_EQ(frames(output).at(4).time.nanoseconds, 5);
    }
    std::filesystem::remove(input);
    std::filesystem::remove(output);
}

// Their headers are translated, their payload is not shown to the module.
TEST(Replay, PacketsCutOffByTheCaptureAreCounted) {
    std::vector<Octets> packets;
    for (const CapturedFrame& frame : frames(sample("h245"))) {
        packets.emplace_back(frame.octets.begin() + ethernetHeader, frame.octets.end());
    }
    const std::string input = scratchPath("short.pcap");
    const std::string output = scratchPath("short_out.pcap");
    writeCapture(input, packets, 101, 0xA1B2C3D4, 60);
    const Outcome outcome = run({input, "-o", output, "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.find("\"rewrite\""), std::string::npos);
    EXPECT_EQ(outcome.output.find("\"truncated\":0,"), std::string::npos) << outcome.output;
    for (const CapturedFrame& frame : frames(output)) {
        PacketLayout layout;
        classifyPacket(frame.octets, layout);
        EXPECT_TRUE(sourceOf(frame.octets, layout).address == publicAddress ||
                    destinationOf(frame.octets, layout).address == privateParty);
    }
    std::filesystem::remove(input);
    std::filesystem::remove(output);
}

} // namespace
