// Start-up, identification and activation.

#include "include/h323nat.h"
#include "nat/full/scope.h"
#include "nat/host_callbacks.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/observed.h"
#include "nat/listed/rewrite_mode.h"
#include "nat/observer.h"

static bool buildPools() {
    return buildPool(callSignalPool) == 0 && buildPool(controlChannelPool) == 0;
}

uint32_t H323InitializeDLL(const HostCallbackTable* table) {
    full_scope::leave();
    full_scope::state.publishedAddress = 0;
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
    full_scope::state.publishedAddress = publishedAddress;
    return 0;
}

uint32_t H323SetRewriteMode(uint32_t mode) {
    return setRewriteMode(mode);
}

static void forgetListedCalls() {
    releaseAllRecords(callSignalPool);
    releaseAllRecords(controlChannelPool);
    observeInboundEnd(H323NAT_END_FORGOTTEN);
    const uint32_t published = inboundMappingState.publishedAddress;
    ResetInboundMapping();
    inboundMappingState.publishedAddress = published;
}

uint32_t H323SetTranslationScope(uint32_t scope, uint32_t calls) {
    switch (scope) {
    case H323NAT_SCOPE_LISTED:
        full_scope::leave();
        break;
    case H323NAT_SCOPE_FULL:
        if (!full_scope::enter(calls)) {
            return 0;
        }
        break;
    default:
        return 0;
    }
    forgetListedCalls();
    return 1;
}

void H323SetObserver(const H323Observer* observer) {
    setObserver(observer);
}
