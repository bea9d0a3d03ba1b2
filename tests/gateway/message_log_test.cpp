#include "gateway/message_log.h"

#include <gtest/gtest.h>

namespace {

using namespace gateway;

constexpr uint32_t tcp = 6;
constexpr H323Endpoint inside{0x0A000005, 47231, 0};
constexpr H323Endpoint outside{0xCB007109, 38333, 0};
constexpr H323Endpoint publicEnd{0xCB007101, 57231, 0};

TEST(MessageLog, ConnectionsAreAnnouncedUntilTheyAreOver) {
    struct Case {
        H323ObservedConnection connection;
        int overs; // after as many it is over
    };
    // Each call has an end of its own, a mapping one for all that asked for it.
    const Case cases[] = {{{H323NAT_ROLE_H245, tcp, inside, publicEnd, {}, 1}, 1},
                          {{H323NAT_ROLE_H245, tcp, {inside.address, 0, 0}, {}, outside, 1}, 3}};
    for (const Case& each : cases) {
        MessageLog log;
        for (int time = 0; time < 3; ++time) {
            log.onAnnounced(each.connection);
        }
        for (int over = 0; over <= each.overs; ++over) {
            for (const H323Endpoint& end : {each.connection.inside, each.connection.publicEndpoint,
                                            each.connection.outside}) {
                EXPECT_EQ(log.isAnnounced(endpointOf(end)), end.port != 0 && over < each.overs);
            }
            log.onOver(each.connection);
        }
    }
}

} // namespace
