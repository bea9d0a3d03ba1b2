#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>

namespace gateway {

// Walks over netlink attributes; libmnl's own loops are macros for C alone.
template <typename Visit> void forEachAttribute(const void* first, const char* end, Visit visit) {
    const auto* attribute = static_cast<const nlattr*>(first);
    while (
        mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char*>(attribute)))) {
        visit(attribute);
        attribute = mnl_attr_next(attribute);
    }
}

// Those of a message behind a family header of `offset` octets.
template <typename Visit>
void forEachAttribute(const nlmsghdr* header, size_t offset, Visit visit) {
    forEachAttribute(mnl_nlmsg_get_payload_offset(header, offset),
                     static_cast<const char*>(mnl_nlmsg_get_payload_tail(header)), visit);
}

template <typename Visit> void forEachNested(const nlattr* attribute, Visit visit) {
    const auto* payload = static_cast<const char*>(mnl_attr_get_payload(attribute));
    forEachAttribute(payload, payload + mnl_attr_get_payload_len(attribute), visit);
}

} // namespace gateway
