#pragma once
// What keeps this computer awake: the service manager's inhibitor locks (logind's
// ListInhibitors on the system bus) that block sleep or idling.
// https://www.freedesktop.org/software/systemd/man/latest/org.freedesktop.login1.html
//
// Any thread; each call opens its own bus connection and gives up after `timeout`.
// Failures are silent: no system bus, no logind or no answer is an empty list.

#include <chrono>
#include <string>
#include <vector>

#include "OmniraCore/sampling/SleepBlocker.h"

namespace omnira::platform {

// `bus`: a D-Bus address ("unix:path=/run/dbus/system_bus_socket"); empty for the system bus.
std::vector<SleepBlocker> readSleepBlockers(const std::string& bus = {},
                                            std::chrono::milliseconds timeout = std::chrono::milliseconds(300));

}  // namespace omnira::platform
