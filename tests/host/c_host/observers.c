#include <string.h>

#include "tests/host/c_host/c_host.h"

static unsigned told[7];
static uint32_t lastEnd;
static uint64_t callNumber;

static int place; /* what the observer's context points to */

static void H323NAT_CALL messageRead(void* given, const H323ObservedMessage* message) {
    ++told[0];
    CHECK(given == &place);
    CHECK(message->octets.data != NULL && message->name.length > 0);
    if (message->role == H323NAT_ROLE_H245) {
        CHECK(message->direction == H323NAT_SENT);
        CHECK(message->octets.length == 22 && message->octets.data[9] == 0x0A); /* unchanged yet */
        CHECK(message->inside.address == privateParty && message->outside.address == remoteParty);
    }
}

static void H323NAT_CALL addressRewritten(void* given, const H323ObservedAddress* address) {
    ++told[1];
    CHECK(given == &place && told[0] > 0);
    CHECK(address->role == H323NAT_ROLE_MEDIA && address->cause == 0 && address->path.length > 0);
    CHECK(address->from.address == privateParty && address->to.address == publicParty);
    CHECK(address->to.port == address->from.port + 35100);
    CHECK(address->offset == (address->from.port == 5000 ? 9u : 16u));
}

static void H323NAT_CALL addressLeft(void* given, const H323ObservedAddress* address) {
    ++told[2];
    CHECK(given == &place);
    CHECK(address->cause > 0 && address->cause < H323NAT_LEFT_BEYOND);
    CHECK(memcmp(&address->from, &address->to, sizeof address->from) == 0);
}

static void H323NAT_CALL callBegan(void* given, const H323ObservedCall* call) {
    ++told[3];
    CHECK(given == &place && call->call > callNumber && call->direction == H323NAT_SENT);
    CHECK(call->outside.address == remoteParty && call->outside.port == 1720);
    callNumber = call->call;
}

static void H323NAT_CALL callEnded(void* given, const H323ObservedCall* call) {
    ++told[4];
    CHECK(given == &place && call->call == callNumber);
    lastEnd = call->end;
}

static void H323NAT_CALL connectionAnnounced(void* given,
                                             const H323ObservedConnection* connection) {
    ++told[5];
    CHECK(given == &place && connection->role == H323NAT_ROLE_H245 && connection->protocol == 6);
    CHECK(connection->outside.address == remoteParty && connection->outside.port == 38333);
}

static void H323NAT_CALL connectionOver(void* given, const H323ObservedConnection* connection) {
    ++told[6];
    CHECK(given == &place && connection->outside.port == 38333);
}

void tellsObservers(void) {
    H323Observer observer = {sizeof observer, &place,    messageRead, addressRewritten,
                             addressLeft,     callBegan, callEnded,   connectionAnnounced,
                             connectionOver};
    unsigned before[7];
    unsigned i;

    H323SetObserver(&observer);
    memset(&observer, 0xEE, sizeof observer); /* the module has its own copy */
    start();
    beginCall();
    CHECK(told[0] == 1 && told[3] == 1 && told[5] == 1);
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(told[0] == 2 && told[1] == 2);
    CHECK(acknowledgeInTwoSegments() == 1); /* the second address is */
    CHECK(told[0] == 3 && told[1] == 3 && told[2] == 1);
    endPair();
    endCall();
    CHECK(told[4] == 1 && lastEnd == H323NAT_END_RELEASED);

    /* Another scope forgets all calls, also when it stays the same. */
    exchange(TarvexPacketOnReceiving, &fromCalled, 6, 1, tcpSyn | tcpAck, NULL, 0);
    CHECK(told[3] == 2);
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_LISTED, 0) == 1);
    CHECK(told[4] == 2 && lastEnd == H323NAT_END_FORGOTTEN);
    CHECK(told[6] == 1);
    mediaRequests = 0;
    acknowledge(privateParty, 5000);
    CHECK(mediaRequests == 0);

    /* A record of a release that knew fewer members, one without functions, and none. */
    memcpy(before, told, sizeof told);
    for (i = 0; i < 3; ++i) {
        H323Observer other = {0, &place, NULL, NULL, NULL, NULL, NULL, NULL, NULL};
        other.size =
            i == 0 ? (uint32_t)offsetof(H323Observer, messageRead) : (uint32_t)sizeof other;
        other.messageRead = i == 0 ? messageRead : NULL;
        H323SetObserver(i == 2 ? NULL : &other);
        start();
        beginCall();
        CHECK(acknowledge(privateParty, 5000) == 1);
        endPair();
    }
    CHECK(memcmp(before, told, sizeof told) == 0);
}
