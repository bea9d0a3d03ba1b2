#include "tests/host/recorded_translators.h"

#include "nat/listed/inbound_control.h"
#include "nat/listed/inbound_signalling.h"
#include "nat/listed/outbound_control.h"
#include "nat/listed/outbound_signalling.h"
#include "nat/listed/ras.h"

RecordedTranslators translators;

static uint32_t record(const char* entry, void* hostContext, const uint8_t* payload,
                       uint32_t length, std::vector<uint32_t> numbers) {
    translators.calls.push_back(
        {entry, static_cast<size_t>(payload - translators.payload), length, std::move(numbers)});
    translators.hostContext = hostContext;
    return translators.rewriting == entry ? 1 : translators.otherAnswer;
}

int32_t ReceiveCallSignalSegment(const FlowKey& key, uint8_t* payload, uint32_t length,
                                 uint32_t sequence) {
    return static_cast<int32_t>(record("ReceiveCallSignalSegment", nullptr, payload, length,
                                       {key.sourceAddress, key.destinationAddress, key.sourcePort,
                                        key.destinationPort, sequence}));
}

int32_t SendCallSignalSegment(HostContext* hostContext, uint8_t* payload, uint32_t length) {
    return static_cast<int32_t>(record("SendCallSignalSegment", hostContext, payload, length, {}));
}

int32_t SendControlSegment(ControlChannelConnection& connection, uint8_t* payload, uint32_t length,
                           uint32_t sequence) {
    return static_cast<int32_t>(record("SendControlSegment", connection.hostContext, payload,
                                       length, {connection.insideFlow.sourcePort, sequence}));
}

uint32_t InboundSignallingFromRemote(HostContext* hostContext, uint32_t sourceAddress,
                                     uint16_t sourcePort, uint8_t* payload, uint32_t length,
                                     uint32_t sequence, uint8_t syn) {
    return record("InboundSignallingFromRemote", hostContext, payload, length,
                  {sourceAddress, sourcePort, sequence, syn});
}

uint32_t InboundSignallingToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                   uint32_t sequence) {
    return record("InboundSignallingToRemote", hostContext, payload, length, {sequence});
}

uint32_t InboundControlToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                uint32_t sequence) {
    return record("InboundControlToRemote", hostContext, payload, length, {sequence});
}

uint32_t TranslateRasMessage(HostContext* hostContext, uint8_t* datagram, uint32_t length,
                             uint32_t destinationAddress) {
    return record("TranslateRasMessage", hostContext, datagram, length, {destinationAddress});
}
