// Addresses as the private host writes them, and as they leave through MemoryHost.
#pragma once

#include "tests/support/capture.h"
#include "tests/support/memory_host.h"
#include "tests/support/messages.h"

namespace test_support {

inline TestAddress own(uint16_t port) {
    return ipv4(privateParty, port);
}

inline TestAddress mapped(uint16_t port) {
    return ipv4(MemoryHost::publicAddress, port);
}

} // namespace test_support
