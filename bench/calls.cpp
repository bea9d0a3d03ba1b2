#include "bench/calls.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

#include "H.323/H323-MESSAGES.h"
#include "bench/corpus.h"

namespace bench {
namespace {

HostContext context{};
HostMappingRecord callRecord{};
size_t lookups = 0; // that the module made for its calls

HostMappingRecord* findOutside(uint32_t, uint16_t, uint32_t, uint16_t) {
    ++lookups;
    return &callRecord;
}

HostMappingRecord* findInside(uint32_t, uint16_t, uint32_t, uint16_t) {
    return nullptr;
}

uint32_t openMedia(HostContext*, uint32_t, uint32_t, uint16_t, uint32_t*, uint32_t*,
                   HostMappingRecord**, HostMappingRecord**, uint8_t* skipLinking) {
    *skipLinking = 1;
    return 0;
}

uint8_t openControl(HostContext*, uint32_t, uint32_t, uint16_t, uint32_t*, uint32_t*, uint32_t*) {
    return 1;
}

template <typename Field> void put(uint8_t* where, Field value) {
    std::memcpy(where, &value, sizeof value);
}

// The corpus's Connect, announcing this H.245 port, as a TPKT message with one User-user element.
std::vector<uint8_t> connectMessage(uint32_t address, uint16_t port) {
    for (const CorpusMessage& message : readCorpus()) {
        if (message.name != "Connect") {
            continue;
        }
        PerContext decoding{};
        pu_initContext(&decoding, message.octets.data(),
                       static_cast<uint32_t>(message.octets.size()), 1);
        H225H323_UserInformation information;
        asn1PD_H225H323_UserInformation(&decoding, &information);
        H225TransportAddress_ipAddress* h245 =
            information.h323_uu_pdu.h323_message_body.value.connect->h245Address.value.ipAddress;
        const uint8_t octets[] = {
            static_cast<uint8_t>(address >> 24), static_cast<uint8_t>(address >> 16),
            static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address)};
        std::memcpy(h245->ip.data, octets, sizeof octets);
        h245->port = port;

        std::vector<uint8_t> tpkt = {3, 0, 0, 0, 8, 2, 0, 1, 7, 0x7E, 0, 0, 5};
        const size_t headers = tpkt.size();
        tpkt.resize(headers + message.octets.size());
        PerContext encoding{};
        pu_initContext(&encoding, tpkt.data() + headers,
                       static_cast<uint32_t>(message.octets.size()), 1);
        asn1PE_H225H323_UserInformation(&encoding, &information);
        pu_freeContext(&encoding);
        pu_freeContext(&decoding);
        const size_t userUser = message.octets.size() + 1;
        tpkt[2] = static_cast<uint8_t>(tpkt.size() >> 8);
        tpkt[3] = static_cast<uint8_t>(tpkt.size());
        tpkt[10] = static_cast<uint8_t>(userUser >> 8);
        tpkt[11] = static_cast<uint8_t>(userUser);
        return tpkt;
    }
    std::cerr << "the corpus has no Connect\n";
    std::exit(2);
}

struct PacketEnds {
    uint32_t source;
    uint32_t destination;
    uint16_t sourcePort;
    uint16_t destinationPort;
};

struct TcpFields {
    uint32_t sequence;
    uint32_t acknowledgement;
    uint8_t flags;
};

std::vector<uint8_t> tcpPacket(const PacketEnds& ends, const TcpFields& fields,
                               const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> packet(40 + payload.size());
    uint8_t* ip = packet.data();
    ip[0] = 0x45;
    put<uint16_t>(ip + 2, static_cast<uint16_t>(packet.size()));
    ip[9] = 6;
    put<uint32_t>(ip + 12, ends.source);
    put<uint32_t>(ip + 16, ends.destination);
    put<uint16_t>(ip + 20, ends.sourcePort);
    put<uint16_t>(ip + 22, ends.destinationPort);
    put<uint32_t>(ip + 24, fields.sequence);
    put<uint32_t>(ip + 28, fields.acknowledgement);
    ip[32] = 0x50;
    ip[33] = fields.flags;
    std::copy(payload.begin(), payload.end(), packet.begin() + 40);
    return packet;
}

void receive(std::vector<uint8_t> packet) {
    PacketDescriptor descriptor{};
    descriptor.ipHeader = packet.data();
    TarvexPacketOnReceiving(&context, &descriptor);
}

void send(std::vector<uint8_t> packet) {
    PacketDescriptor descriptor{};
    descriptor.moduleIpHeader = packet.data();
    descriptor.transportHeader = packet.data() + 20;
    descriptor.transportLength = static_cast<uint16_t>(packet.size() - 20);
    TarvexPacketOnSending(&context, &descriptor);
}

void receiveFromCalledParty(uint32_t party, uint32_t sequence, uint8_t flags,
                            const std::vector<uint8_t>& payload) {
    receive(tcpPacket({party, context.publicAddress, 1720, 30000}, {sequence, 0, flags}, payload));
}

// SYN, and SYN and ACK, of a connection that a private host opens.
void open(const PacketEnds& outwards) {
    callRecord.insideAddress = outwards.source;
    callRecord.insidePort = outwards.sourcePort;
    send(tcpPacket(outwards, {999, 0, 0x02}, {}));
    receive(tcpPacket({outwards.destination, context.publicAddress, outwards.destinationPort,
                       outwards.sourcePort},
                      {999, 1000, 0x12}, {}));
}

size_t announcements = 0; // the module's, of H.245 endpoints

} // namespace

HostContext* hostContext() {
    return &context;
}

void startModule(size_t calls) {
    static const HostCallbackTable table = {nullptr,     nullptr,    nullptr,    openMedia,
                                            openControl, findInside, findOutside};
    context.publicAddress = 0xCB007101U;
    callRecord.insideAddress = 0x0A000005U;
    callRecord.insidePort = 30000;
    if (H323InitializeDLL(&table) != 1) {
        std::cerr << "the module does not start\n";
        std::exit(2);
    }
    lookups = 0;
    for (size_t i = 0; i < calls; ++i) {
        const uint32_t party = 0xCB007200U + static_cast<uint32_t>(i);
        receiveFromCalledParty(party, 1000, 0x12, {});
        receiveFromCalledParty(party, 1001, 0x18,
                               connectMessage(party, static_cast<uint16_t>(20000 + i)));
    }
    if (lookups != 2 * calls) {
        std::cerr << "the module follows not all of " << calls << " calls\n";
        std::exit(2);
    }
}

void startFullScope(size_t calls) {
    startModule(0);
    H323Observer observer = {};
    observer.size = sizeof observer;
    observer.connectionAnnounced = [](void*, const H323ObservedConnection*) { ++announcements; };
    H323SetObserver(&observer);
    if (H323SetTranslationScope(H323NAT_SCOPE_FULL, 1000) != 1) {
        std::cerr << "there is no memory for the full scope\n";
        std::exit(2);
    }
    announcements = 0;
    for (size_t i = 0; i < calls; ++i) {
        const uint32_t caller = 0x0A000005U + static_cast<uint32_t>(i);
        const uint32_t party = 0xCB007200U + static_cast<uint32_t>(i);
        const auto control = static_cast<uint16_t>(20000 + i);
        open({caller, party, 30000, 1720});
        receive(tcpPacket({party, context.publicAddress, 1720, 30000}, {1000, 1000, 0x18},
                          connectMessage(party, control)));
        open({caller, party, 30001, control});
    }
    H323SetObserver(nullptr);
    if (announcements != calls) {
        std::cerr << "the module follows not all of " << calls << " calls\n";
        std::exit(2);
    }
}

} // namespace bench
