#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace report {

// The blocks of a pcapng file with IPv4 packets and remarks about them, as octets: one section, one
// interface, time stamps in nanoseconds.
std::string pcapngHeader(const std::string& comment);

// A packet. `time` is nanoseconds since 1970; an empty comment is none.
std::string pcapngPacket(int64_t time, std::span<const uint8_t> packet, const std::string& comment);

} // namespace report
