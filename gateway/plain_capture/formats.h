// What the pcap and pcapng formats fix, and the bounds that no real capture exceeds.
// draft-ietf-opsawg-pcap, draft-ietf-opsawg-pcapng.
#pragma once

#include <cstdint>

namespace gateway::plain_capture {

// The first number of a file; pcap's tell the unit of its times.
constexpr uint32_t pcapMicroseconds = 0xA1B2C3D4;
constexpr uint32_t pcapNanoseconds = 0xA1B23C4D;
constexpr uint32_t pcapngSection = 0x0A0D0D0A; // reads the same in both byte orders

// Raw IP in files; linkTypeRaw in CaptureReader::linkType.
constexpr int fileLinkTypeRaw = 101;

// libpcap's own bounds, in octets.
constexpr uint32_t maxFrame = 262144;
constexpr uint32_t maxBlock = 16 * 1024 * 1024;

constexpr uint32_t nanosecondsPerSecond = 1000000000;

} // namespace gateway::plain_capture
