#include "nat/inbound_signalling.h"

uint32_t InboundSignallingFromRemote(HostContext*, uint32_t, uint16_t, uint8_t*, uint32_t, uint32_t,
                                     uint8_t) {
    return 0;
}

uint32_t InboundSignallingToRemote(HostContext*, uint8_t*, uint32_t, uint32_t) {
    return 0;
}
