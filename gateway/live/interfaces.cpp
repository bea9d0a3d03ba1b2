#include "gateway/live/interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

namespace gateway {

uint32_t addressOfInterface(const std::string& name) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return 0;
    }
    uint32_t address = 0;
    for (const ifaddrs* entry = list; entry != nullptr && address == 0; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
            name == entry->ifa_name) {
            address = ntohl(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr);
        }
    }
    freeifaddrs(list);
    return address;
}

std::set<uint32_t> indicesOfInside(const LiveConfig& config) {
    std::set<uint32_t> indices;
    struct if_nameindex* const list = if_nameindex();
    for (const struct if_nameindex* entry = list; entry != nullptr && entry->if_index != 0;
         ++entry) {
        if (isInsideName(config, entry->if_name)) {
            indices.insert(entry->if_index);
        }
    }
    if_freenameindex(list);
    return indices;
}

uint32_t indexOfInterface(const std::string& name) {
    return if_nametoindex(name.c_str());
}

} // namespace gateway
