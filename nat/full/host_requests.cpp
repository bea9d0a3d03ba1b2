#include "nat/full/host_requests.h"

#include "nat/host_callbacks.h"
#include "nat/media_records.h"

namespace full_scope {

static bool askForMedia(const EndpointKey& inside, const Asking& asking,
                        EndpointKey& publicEndpoint) {
    MediaMapping mapping = {};
    openMediaMapping(asking.hostContext, inside, asking.remoteAddress, mapping);
    publicEndpoint = {mapping.publicAddress, static_cast<uint16_t>(mapping.publicPort)};
    if (publicEndpoint.address == 0 || publicEndpoint.port == 0 || publicEndpoint == inside) {
        return false;
    }
    if (asking.control != nullptr) {
        linkToControlConnection(mapping, *asking.control);
    }
    return true;
}

static bool askForControl(const EndpointKey& inside, const Asking& asking,
                          EndpointKey& publicEndpoint) {
    uint32_t publicPort = 0;
    uint32_t publicAddress = 0;
    uint32_t reserved = 0;
    const uint8_t refused = hostCallbacks.HostOpenControlMapping(
        asking.hostContext, inside.address, asking.remoteAddress, inside.port, &publicPort,
        &publicAddress, &reserved);
    publicEndpoint = {publicAddress, static_cast<uint16_t>(publicPort)};
    return refused == 0 && publicEndpoint.address != 0 && publicEndpoint.port != 0;
}

bool askHost(uint8_t role, const EndpointKey& inside, const Asking& asking,
             EndpointKey& publicEndpoint) {
    return role == H323NAT_ROLE_MEDIA || role == H323NAT_ROLE_RAS
               ? askForMedia(inside, asking, publicEndpoint)
               : askForControl(inside, asking, publicEndpoint);
}

bool askWhose(const EndpointKey& publicEndpoint, const EndpointKey& outside, EndpointKey& inside) {
    const HostMappingRecord* record = hostCallbacks.HostFindOutsideMapping(
        publicEndpoint.address, publicEndpoint.port, outside.address, outside.port);
    if (record == nullptr) {
        return false;
    }
    inside = {record->insideAddress, record->insidePort};
    return true;
}

} // namespace full_scope
