#include "nat/inbound_control.h"

uint32_t InboundControlToRemote(HostContext*, uint8_t*, uint32_t, uint32_t) {
    return 0;
}
