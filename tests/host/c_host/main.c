/* A host program in C99 that has nothing but h323nat.h: it loads the module given as its argument,
 * keeps and frees its records exactly as that header has it, and checks what the header promises.
 * A sanitizer sees a record that the module touches after the header gave it back. */
#include <stdlib.h>
#include <string.h>

#include "samples/minimal_host/loaded_module.h"
#include "tests/host/c_host/c_host.h"

/* Every start leaves the records of the one before allocated, as the header says. */
H323NAT_API const char* __lsan_default_suppressions(void);
const char* __lsan_default_suppressions(void) {
    return "leak:H323InitializeDLL";
}

int failures;

static const uint32_t strangeParty = UINT32_C(0x0A000063);

static const char gatekeeperRequest[] = /* RAS at 10.0.0.5:1719 */
    "00000000060008914a0002000a00000506b70000";

static void fillsTheDescriptor(void) {
    uint8_t packet[41] = {0};
    PacketDescriptor descriptor;
    PacketDescriptor before;
    const uint16_t total = 40;
    packet[1] = 0x45;
    memcpy(packet + 3, &total, 2);
    memset(&descriptor, 0xEE, sizeof descriptor);
    before = descriptor;
    descriptor.ipHeader = packet + 1;
    CHECK(TarvexPacketOnReceiving(context, &descriptor) == 0);
    CHECK(descriptor.flags == before.flags);
    CHECK(descriptor.moduleIpHeader == packet + 1);
    CHECK(descriptor.ipHeaderLength == 20);
    CHECK(descriptor.transportHeader == packet + 21);
    CHECK(descriptor.transportLength == 20);
    CHECK(descriptor.transportLengthCopy1 == 20);
    CHECK(descriptor.transportLengthCopy2 == 20);
    CHECK(memcmp(descriptor.hostField04, before.hostField04, sizeof before.hostField04) == 0);
    CHECK(memcmp(descriptor.hostField1C, before.hostField1C, sizeof before.hostField1C) == 0);
    CHECK(memcmp(descriptor.hostField2C, before.hostField2C, sizeof before.hostField2C) == 0);
    before = descriptor;
    CHECK(TarvexPacketOnSending(context, &descriptor) == 0);
    CHECK(memcmp(&descriptor, &before, sizeof before) == 0);
}

static void linksAndKeepsRecords(void) {
    start();
    signalling = newRecord();
    signalling->insideAddress = privateParty;
    signalling->insidePort = 50000;
    control = newRecord();
    beginCall();
    CHECK(outsideLookups > 0);

    /* The signalling connection ends. Its record is the module's to write still. */
    endCall();
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(signalling->controlLink == control);
    CHECK(control->firstMediaRecord == pair.first);
    CHECK(pair.first->parent == control && pair.second->parent == control);
    CHECK(pair.first->nextSibling == pair.second && pair.second->nextSibling == NULL);
    CHECK(pair.second->previousSibling == pair.first && pair.first->previousSibling == NULL);
    CHECK(pair.first->inherited24 == control->inherited24);

    /* The same endpoint again gets the same answer, without a second link. */
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(mediaRequests == 2 && insideLookups == 1);
    CHECK(pair.second->nextSibling == NULL);

    /* An address that is not the sender's: nothing is opened, nothing linked. */
    acknowledge(strangeParty, 5000);
    CHECK(refused == 1 && insideLookups == 1);

    /* The mapping ends, another one comes. */
    endPair();
    CHECK(control->firstMediaRecord == NULL);
    CHECK(acknowledge(privateParty, 5002) == 1);
    CHECK(control->firstMediaRecord == pair.first);

    /* The H.245 connection ends: the host closes what is linked, and clears what leads there. */
    endPair();
    signalling->controlLink = NULL;
    free(control);
    control = NULL;
    CHECK(acknowledge(privateParty, 5004) == 1); /* rewritten, and not linked */
    CHECK(pair.first->parent == NULL && signalling->controlLink == NULL);
    endPair();

    /* The next start forgets the call, and with it the record. */
    start();
    free(signalling);
    signalling = NULL;
    refused = mediaRequests = 0;
    CHECK(acknowledge(privateParty, 5000) == 0);
    CHECK(mediaRequests == 0);
}

static void keepsToItsLimits(void) {
    uint8_t octets[4200];
    const size_t count = fromHex(connectHex, octets);
    Flow flow = fromCalled;
    uint32_t sequence = 1;
    uint16_t i;

    /* 50 signalling connections. The host is asked for each one's record. */
    start();
    outsideLookups = 0;
    for (i = 0; i < 51; ++i) {
        flow.destinationPort = (uint16_t)(41000 + i);
        exchange(TarvexPacketOnReceiving, &flow, 6, 1, tcpSyn | tcpAck, NULL, 0);
    }
    CHECK(outsideLookups == 50);

    /* 50 H.245 connections, for each of which it is asked again. */
    start();
    beginCall();
    outsideLookups = 0;
    for (i = 1; i < 52; ++i) {
        octets[28] = (uint8_t)i; /* of the port */
        sendOn(&fromCalled, TarvexPacketOnReceiving, &calledSequence, octets, count);
    }
    CHECK(outsideLookups == 49);

    /* 4096 octets: the message behind one of 4097 is not seen any more. */
    for (i = 0; i < 2; ++i) {
        start();
        beginCall();
        memset(octets, 0, sizeof octets);
        octets[2] = 0x10;
        octets[3] = (uint8_t)i;
        sendOn(&onControl, TarvexPacketOnSending, &controlSequence, octets, 4096);
        sendOn(&onControl, TarvexPacketOnSending, &controlSequence, octets, i);
        mediaRequests = 0;
        acknowledge(privateParty, 5000);
        CHECK(mediaRequests == (i == 0 ? 1u : 0u));
        endPair();
    }

    /* A Setup, one octet of which comes later, is not one segment; one inbound call at a time, of
     * which 4000 octets are put together. */
    for (i = 0; i < 2; ++i) {
        const Flow caller = {remoteParty, publicParty, 50000, 1720};
        const Flow second = {remoteParty + 1, publicParty, 50000, 1720};
        uint8_t setup[64];
        const size_t length = fromHex(
            "0300003008020001057e0024050008060008914a00020000cb00710106b8000000000000000000000000"
            "000000000000",
            setup);
        start();
        CHECK(TarvexActivateInboundMapping(privateParty) == 0);
        sequence = 1;
        exchange(TarvexPacketOnReceiving, &caller, 6, 0, tcpSyn, NULL, 0);
        exchange(TarvexPacketOnReceiving, &second, 6, 0, tcpSyn, NULL, 0);
        CHECK(exchange(TarvexPacketOnReceiving, &second, 6, 1, tcpAck, setup, length) == 0);
        octets[2] = 0x0F;
        octets[3] = (uint8_t)(0xA0 + i);
        sendOn(&caller, TarvexPacketOnReceiving, &sequence, octets, 4000);
        sendOn(&caller, TarvexPacketOnReceiving, &sequence, octets, i);
        CHECK(sendOn(&caller, TarvexPacketOnReceiving, &sequence, setup, length) == (i == 0));
    }
}

static int askWithRas(uint16_t sourcePort) {
    const Flow flow = {privateParty, remoteParty, sourcePort, 1719};
    uint8_t octets[32];
    const size_t count = fromHex(gatekeeperRequest, octets);
    const int changed = exchange(TarvexPacketOnSending, &flow, 17, 0, 0, octets, count);
    endPair();
    return changed;
}

/* Only the full scope looks at RAS from any port. */
static void knowsItsScopes(void) {
    start();
    CHECK(askWithRas(1719) == 1 && askWithRas(2000) == 0);
    CHECK(H323SetTranslationScope(2, 0) == 0 && H323SetTranslationScope(UINT32_MAX, 0) == 0);
    CHECK(askWithRas(2000) == 0);
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_FULL, UINT32_MAX) ==
          0); /* more calls than there is memory for */
    CHECK(askWithRas(2000) == 0);
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_FULL, 10) == 1);
    CHECK(askWithRas(2000) == 1);
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_FULL, 0) == 1);
    CHECK(askWithRas(2000) == 1);
    CHECK(H323SetTranslationScope(7, 0) == 0);
    CHECK(askWithRas(2000) == 1); /* nothing has changed */
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_LISTED, 0) == 1);
    CHECK(askWithRas(2000) == 0 && askWithRas(1719) == 1);
    CHECK(H323SetTranslationScope(H323NAT_SCOPE_FULL, 10) == 1);
    start();
    CHECK(askWithRas(2000) == 0 && askWithRas(1719) == 1);
}

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2 || !loadModule(arguments[1])) {
        fputs("usage: c_host MODULE, a module that can be loaded\n", stderr);
        return 2;
    }
    context = calloc(1, sizeof *context);
    if (context == NULL) {
        return 1;
    }
    context->publicAddress = publicParty;

    CHECK(H323IsGatewayDLL() == H323NAT_IDENTIFICATION);
    CHECK(H323InitializeDLL(NULL) == 0);
    start();
    CHECK(H323IsGatewayDLL() == H323NAT_IDENTIFICATION);
    CHECK(H323SetRewriteMode(7) == H323NAT_REWRITE_ENCODED);
    CHECK(H323SetRewriteMode(H323NAT_REWRITE_LOSSLESS) == H323NAT_REWRITE_LOSSLESS);
    fillsTheDescriptor();
    linksAndKeepsRecords();
    keepsToItsLimits();
    tellsObservers();
    knowsItsScopes();

    free(context);
    if (failures == 0) {
        puts("the module answers as its contract says");
    }
    return failures == 0 ? 0 : 1;
}
