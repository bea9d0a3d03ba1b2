#include "nat/outbound_signalling.h"

int32_t ReceiveCallSignalSegment(const FlowKey&, uint8_t*, uint32_t, uint32_t) {
    return 0;
}

int32_t SendCallSignalSegment(HostContext*, uint8_t*, uint32_t) {
    return 0;
}
