// Recorded calls: the TCP segments and RAS datagrams of a capture in samples/.
#pragma once

#include <string>
#include <vector>

#include "tests/support/segment.h"

namespace test_support {

/// The parties of every recorded call.
constexpr uint32_t privateParty = address(10, 0, 0, 5);
constexpr uint32_t outsideParty = address(203, 0, 113, 9);
constexpr uint32_t gatekeeper = address(203, 0, 113, 8);

struct CapturedPacket {
    size_t frame = 0;  // number of the frame in the capture, from 0
    bool sent = false; // by the private party
    Segment segment; // as the hook of its direction sees it: received ones go to the public address
};

/// Reads samples/NAME.pcap. Media is left out. Throws std::runtime_error when it cannot be read.
std::vector<CapturedPacket> readCapture(const std::string& name);

} // namespace test_support
