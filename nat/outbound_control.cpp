#include "nat/outbound_control.h"

int32_t SendControlSegment(ControlChannelConnection&, uint8_t*, uint32_t, uint32_t) {
    return 0;
}
