// Proves the octet offsets that h323nat.h promises for the host's records. No code.

#include <cstddef>

#include "include/h323nat.h"

namespace {

constexpr bool wide = sizeof(void*) == 8;

static_assert(sizeof(void*) == 4 || sizeof(void*) == 8,
              "the contract knows these two kinds of host");

constexpr size_t at(size_t onNarrowHosts, size_t onWideHosts) {
    return wide ? onWideHosts : onNarrowHosts;
}

#define AT(record, member, onNarrowHosts, onWideHosts)                                             \
    static_assert(offsetof(record, member) == at(onNarrowHosts, onWideHosts))

AT(PacketDescriptor, flags, 0x00, 0x00);
AT(PacketDescriptor, ipHeader, 0x18, 0x18);
AT(PacketDescriptor, moduleIpHeader, 0x20, 0x24);
AT(PacketDescriptor, ipHeaderLength, 0x24, 0x2C);
AT(PacketDescriptor, transportHeader, 0x26, 0x2E);
AT(PacketDescriptor, transportLength, 0x2A, 0x36);
AT(PacketDescriptor, transportLengthCopy1, 0x36, 0x42);
AT(PacketDescriptor, transportLengthCopy2, 0x38, 0x44);
static_assert(sizeof(PacketDescriptor) == at(0x3A, 0x46));

AT(HostMappingRecord, insideAddress, 0x1E, 0x1E);
AT(HostMappingRecord, insidePort, 0x22, 0x22);
AT(HostMappingRecord, inherited24, 0x24, 0x24);
AT(HostMappingRecord, inherited28, 0x28, 0x28);
AT(HostMappingRecord, inherited2A, 0x2A, 0x2A);
AT(HostMappingRecord, parent, 0x44, 0x44);
AT(HostMappingRecord, nextSibling, 0x48, 0x4C);
AT(HostMappingRecord, previousSibling, 0x4C, 0x54);
AT(HostMappingRecord, controlLink, 0x64, 0x70);
AT(HostMappingRecord, firstMediaRecord, 0x68, 0x78);
static_assert(sizeof(HostMappingRecord) == at(0x6C, 0x80));

AT(HostContext, publicAddress, 0x13C, 0x13C);
static_assert(sizeof(HostContext) == 0x140);

AT(HostCallbackTable, HostReserved0, 0x00, 0x00);
AT(HostCallbackTable, HostOpenMediaMapping, 0x0C, 0x18);
AT(HostCallbackTable, HostFindOutsideMapping, 0x18, 0x30);
static_assert(sizeof(HostCallbackTable) == at(0x1C, 0x38));

} // namespace
