// Start-up, identification and activation.

#include "include/h323nat.h"
#include "nat/host_callbacks.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/rewrite_mode.h"

static bool buildPools() {
    return buildPool(callSignalPool) == 0 && buildPool(controlChannelPool) == 0;
}

uint32_t H323InitializeDLL(const HostCallbackTable* table) {
    const bool built = buildPools();
    ResetInboundMapping();
    if (!built || table == nullptr) {
        return 0;
    }
    hostCallbacks = *table;
    return 1;
}

uint32_t H323IsGatewayDLL(void) {
    return H323NAT_IDENTIFICATION;
}

uint32_t TarvexActivateInboundMapping(uint32_t publishedAddress) {
    ActivateInboundMapping(publishedAddress);
    return 0;
}

uint32_t H323SetRewriteMode(uint32_t mode) {
    return setRewriteMode(mode);
}
