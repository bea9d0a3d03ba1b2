// Registrations with gatekeepers outside: what they open, how long, and for whom they give way.

#include <gtest/gtest.h>

#include "nat/full/registrations.h"
#include "tests/full/full_host.h"
#include "tests/support/host_packet.h"
#include "tests/support/messages.h"

using namespace test_support;
using Lines = std::vector<std::string>;

namespace {

constexpr EndpointKey ras = {privateParty, 1719};
constexpr EndpointKey signalling = {privateParty, 1720};
constexpr EndpointKey keeper = {gatekeeper, 1719};
constexpr EndpointKey group = {address(224, 0, 1, 41), 1718};

// Nobody answers there.
constexpr uint32_t stranger(uint32_t number) {
    return address(198, 51, 100, 0) + number;
}

void registerAt(FullHost& host, const EndpointKey& signallingAddress = signalling,
                const EndpointKey& rasAddress = ras) {
    host.sendDatagram(rasAddress, keeper,
                      registrationRequest({at(signallingAddress)}, {at(rasAddress)}));
}

void unregister(FullHost& host) {
    host.sendDatagram(ras, keeper, unregistrationRequest(at(signalling)));
    host.receiveDatagram(keeper, FullHost::publicOf(ras), {0x1c, 0, 0}); // UCF
}

// A request for a call names an endpoint of it.
void askAdmission(FullHost& host, uint16_t port) {
    host.sendDatagram(ras, keeper,
                      messageWith("admissionRequest.srcCallSignalAddress", {privateParty, port}));
}

bool isMapped(const EndpointKey& inside) {
    const full_scope::Pool<full_scope::Mapping>& mappings = full_scope::state.mappings;
    for (full_scope::Index index = 1; index < mappings.fresh; ++index) {
        const full_scope::Mapping& mapping = mappings.records[index];
        if (mapping.claims != 0 && mapping.inside == inside) {
            return true;
        }
    }
    return false;
}

TEST(Registrations, TerminalThatAsksAGroupIsConfirmedEachTimeItComesBack) {
    FullHost host;
    const Octets request = gatekeeperRequest(at(ras));
    const Octets confirm = messageWith("gatekeeperConfirm.rasAddress.ipAddress", keeper);
    for (int start = 0; start < 20; ++start) {
        SCOPED_TRACE(start);
        host.sendDatagram(ras, group, request);
        host.sendDatagram(ras, group, request); // nobody has answered yet
        host.receiveDatagram({group.address, 1719}, FullHost::publicOf(ras), confirm); // forged
        host.receiveDatagram(keeper, FullHost::publicOf(ras), confirm);
        EXPECT_EQ(host.takeAsked(),
                  (Lines{"media 10.0.0.5:1719 > 1.1.1.1", "media 10.0.0.5:1719 > 1.1.1.1"}));
        registerAt(host);
        EXPECT_TRUE(isMapped(signalling));
        EXPECT_EQ(full_scope::state.registrations.used, 1U);
        unregister(host);
        EXPECT_EQ(full_scope::state.mappings.used, 0U);
        host.takeTold();
        registerAt(host); // to a gatekeeper that has confirmed nothing since
        EXPECT_FALSE(isMapped(signalling));
        const Lines left = host.takeTold("left");
        ASSERT_EQ(left.size(), 1U);
        EXPECT_TRUE(left[0].ends_with(" 10")) << left[0];
        unregister(host);
        host.takeAsked();
    }
}

TEST(Registrations, TerminalThatComesBackWithOtherPortsPushesItsOldOnesOut) {
    FullHost host;
    for (uint16_t start = 0; start < 40; ++start) {
        SCOPED_TRACE(start);
        const EndpointKey newRas = {privateParty, static_cast<uint16_t>(20000 + start)};
        const EndpointKey newSignalling = {privateParty, static_cast<uint16_t>(30000 + start)};
        host.discover(newRas);
        registerAt(host, newSignalling, newRas);
        ASSERT_TRUE(isMapped(newRas));
        ASSERT_TRUE(isMapped(newSignalling));
        ASSERT_LE(full_scope::state.mappings.used, 16U);
    }
    EXPECT_EQ(host.takeTold("left"), Lines{});
}

TEST(Registrations, WhatIsNamedAgainStays) {
    FullHost host;
    host.discover();
    for (uint16_t round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        registerAt(host);
        if (round < 40) {
            askAdmission(host, static_cast<uint16_t>(20000 + round)); // of calls
        } else {
            registerAt(host, {privateParty, static_cast<uint16_t>(20000 + round)});
        }
        ASSERT_TRUE(isMapped(ras));
        ASSERT_TRUE(isMapped(signalling));
        ASSERT_LE(full_scope::state.mappings.used, 16U);
    }
    // The last of them is there, those of calls went first.
    EXPECT_TRUE(isMapped({privateParty, 20059}));
    EXPECT_FALSE(isMapped({privateParty, 20039}));
}

TEST(Registrations, AnEndpointOfACallThatIsRegisteredLaterLasts) {
    FullHost host;
    host.discover();
    askAdmission(host, signalling.port);
    registerAt(host);
    for (uint16_t port = 20000; port < 20040; ++port) {
        askAdmission(host, port);
    }
    EXPECT_TRUE(isMapped(signalling));
}

TEST(Registrations, TheHostEndsItWhenItsGatekeeperAsksForThat) {
    FullHost host;
    const Octets confirm = {0x1c, 0, 0}; // UCF
    host.sendDatagram(ras, keeper, confirm);
    EXPECT_EQ(full_scope::state.registrations.used, 0U) << "it asked for nothing";
    host.discover();
    registerAt(host);
    EXPECT_EQ(full_scope::state.mappings.used, 2U);
    host.sendDatagram(ras, keeper, confirm);
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

TEST(Registrations, AConfirmedEndThatTheHostDidNotAskForEndsNothing) {
    FullHost host;
    host.discover();
    registerAt(host);
    askAdmission(host, signalling.port);
    host.receiveDatagram(keeper, FullHost::publicOf(ras), {0x1c, 0, 0}); // UCF, not of the keeper
    EXPECT_TRUE(isMapped(signalling));
    unregister(host);
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

TEST(Registrations, AMappingThatNobodyCanNeedIsOverAtOnce) {
    FullHost host(1); // 135 claims
    std::vector<TestAddress> addresses;
    for (uint16_t port = 20000; port < 20015; ++port) {
        addresses.push_back(at({privateParty, port}));
    }
    for (uint32_t number = 1; number <= 9; ++number) {
        host.discover(ras, stranger(number));
        host.sendDatagram(ras, {stranger(number), 1719}, registrationRequest(addresses, {at(ras)}));
    }
    EXPECT_EQ(full_scope::state.claims.used, full_scope::state.claims.capacity);
    EXPECT_EQ(full_scope::state.mappings.used, 16U);
    TcpCall call(host, {privateParty, 50000}, {outsideParty, 1720});
    call.sent(plainSetup());
    host.takeTold();
    call.sent(q931({answer(Answer::connect, at({privateParty, 47231}))}));
    const Lines left = host.takeTold("left");
    ASSERT_EQ(left.size(), 1U);
    EXPECT_TRUE(left[0].ends_with(" 11")) << left[0];
    EXPECT_EQ(full_scope::state.mappings.used, 16U);
}

TEST(Registrations, OneMessageNamesAtMostSixteen) {
    FullHost host;
    host.discover();
    std::vector<TestAddress> addresses;
    for (uint16_t port = 20000; port < 20020; ++port) {
        addresses.push_back(at({privateParty, port}));
    }
    host.takeTold();
    host.sendDatagram(ras, keeper, registrationRequest(addresses, {at(ras)}));
    EXPECT_EQ(full_scope::state.mappings.used, 16U);
    const Lines left = host.takeTold("left");
    ASSERT_EQ(left.size(), 5U);
    EXPECT_TRUE(left[0].ends_with(" 4")) << left[0];
}

TEST(Registrations, RequestsToNobodyTakeNoRecordOfARegisteredHost) {
    FullHost host(8); // 24 registrations
    const auto rasOf = [](uint32_t number) { return EndpointKey{privateParty + number, 1719}; };
    for (uint32_t number = 0; number < 20; ++number) {
        host.discover(rasOf(number));
    }
    host.clock.advance(300);
    for (uint32_t nobody = 1; nobody <= 40; ++nobody) {
        host.sendDatagram(ras, {stranger(nobody), 1719}, gatekeeperRequest(at(ras)));
    }
    for (uint32_t number = 0; number < 20; ++number) {
        EXPECT_NE(full_scope::findRegistration(privateParty + number, gatekeeper), 0U) << number;
    }
    EXPECT_NE(full_scope::findRegistration(privateParty, stranger(40)), 0U);
}

TEST(Registrations, AQuietOneGivesWayToANewOneUnlessTheClockWasSetBack) {
    struct Case {
        int before;  // the clock goes on by so many seconds,
        int seconds; // all ask again, and it goes on or back
        bool room;
    };
    for (const Case& each : {Case{0, 180, false},
                             {0, 181, true},
                             {150, 180, false},
                             {150, 181, true},
                             {0, -1, false},
                             {0, -86400, false}}) {
        SCOPED_TRACE(std::to_string(each.before) + " " + std::to_string(each.seconds));
        FullHost host(1); // 17 registrations
        for (const int later : {0, each.before}) {
            host.clock.advance(static_cast<uint32_t>(later));
            for (uint32_t number = 0; number < 17; ++number) {
                host.discover({privateParty + number, 1719});
            }
        }
        host.clock.advance(static_cast<uint32_t>(each.seconds));
        host.discover({privateParty + 17, 1719});
        EXPECT_EQ(full_scope::findRegistration(privateParty, gatekeeper) == 0, each.room);
        EXPECT_EQ(full_scope::findRegistration(privateParty + 17, gatekeeper) != 0, each.room);
    }
}

TEST(Registrations, ObserverIsToldWheneverTheHostWasAskedAndWhenTheHostMovesAMapping) {
    FullHost host;
    host.discover();
    const std::string before = "signalling tcp 10.0.0.5:1720 203.0.113.1:11720 0.0.0.0:0";
    const std::string after = "signalling tcp 10.0.0.5:1720 203.0.113.1:11721 0.0.0.0:0";
    const auto told = [&host] {
        Lines lines = host.takeTold();
        std::erase_if(lines, [](const std::string& line) {
            return line.find(" signalling tcp ") == std::string::npos;
        });
        return lines;
    };
    // The host may have closed the mapping when nobody used it, and open it anew.
    for (int request = 0; request < 2; ++request) {
        registerAt(host);
        EXPECT_EQ(told(), Lines{"announced " + before});
    }
    host.moved = 1;
    registerAt(host);
    EXPECT_EQ(told(), (Lines{"over " + before, "announced " + after}));
}

// What stands where UDP has its ports can be anything.
TEST(Registrations, OtherProtocolsAreNoRas) {
    FullHost host;
    const Octets request = gatekeeperRequest(at(ras));
    const Octets confirm = messageWith("gatekeeperConfirm.rasAddress.ipAddress", keeper);
    for (const uint8_t protocol : {uint8_t{1}, uint8_t{33}, uint8_t{132}, uint8_t{17}}) {
        SCOPED_TRACE(int{protocol});
        HostPacket sent = HostPacket::udp({privateParty, gatekeeper, 1719, 1719, 0, 0, request});
        HostPacket received =
            HostPacket::udp({gatekeeper, publicAddress, 1719, 11719, 0, 0, confirm});
        for (HostPacket* packet : {&sent, &received}) {
            packet->ip()[9] = protocol;
        }
        EXPECT_EQ(sent.send(&host.context), protocol == 17);
        received.receive(&host.context);
        EXPECT_EQ(host.takeTold("message").size(), protocol == 17 ? 2U : 0U);
    }
}

} // namespace
