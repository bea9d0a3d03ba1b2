// Ports that H.323 has by registration.
#pragma once

#include <cstdint>

inline constexpr uint16_t callSignallingPort = 1720; // H.225.0, TCP
inline constexpr uint16_t t120Port = 1503;           // T.120 data, TCP
inline constexpr uint16_t rasPort = 1719;            // H.225.0 RAS, UDP
inline constexpr uint16_t discoveryPort = 1718;      // of gatekeepers, UDP
