#pragma once

#include <chrono>
#include <string>

namespace gateway {

// Tells the service manager what goes on ("READY=1"), by the datagrams that systemd's sd_notify(3)
// describes. Does nothing when the program was not started by one.
void notifyServiceManager(const std::string& state);

// How often the service manager wants to hear "WATCHDOG=1"; zero: never.
std::chrono::microseconds watchdogInterval();

} // namespace gateway
