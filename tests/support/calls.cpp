#include "tests/support/calls.h"

#include "tests/support/messages.h"

namespace test_support {

namespace {

constexpr uint16_t signallingPort = 1720;
constexpr uint16_t partyPort = 50000;
constexpr uint16_t partyControlPort = 51000;

} // namespace

OutboundCall::OutboundCall(MemoryHost& memoryHost)
    : host(memoryHost), caller({privateParty, outsideParty, partyPort, signallingPort}, 1001),
      called({outsideParty, MemoryHost::publicAddress, signallingPort, partyPort}, 0xfffffff0),
      control({privateParty, outsideParty, partyControlPort, controlPort}, 2001),
      signallingRecord(host.addFlow(caller.flow())), controlRecord(host.addFlow(control.flow())) {
    Segment accept = called.next({});
    accept.flags = tcpSyn | tcpAck;
    host.receive(accept);
    host.log.clear();
}

void OutboundCall::announceControl() {
    fromCalled(q931({answer(Answer::connect, ipv4(outsideParty, controlPort))}));
    host.log.clear();
}

InboundCall::InboundCall(MemoryHost& memoryHost)
    : host(memoryHost),
      remote({outsideParty, MemoryHost::publicAddress, partyPort, signallingPort}, 1001),
      published({privateParty, outsideParty, signallingPort, partyPort}, 0xfffffff0),
      control({privateParty, outsideParty, controlPort, partyControlPort}, 2001),
      controlRecord(host.addFlow(control.flow())) {
    TarvexActivateInboundMapping(privateParty);
    Segment syn = remote.next({});
    syn.flags = tcpSyn;
    host.receive(syn);
    host.log.clear();
}

void InboundCall::announceControl() {
    fromPublished(q931({answer(Answer::connect, ipv4(privateParty, controlPort))}));
    host.log.clear();
}

} // namespace test_support
