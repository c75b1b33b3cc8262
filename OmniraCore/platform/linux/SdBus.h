#pragma once
// Owning handles for sd-bus objects, and opening a bus by address. Used by the readers that
// ask system services (logind's inhibitors, UPower's devices); each handle belongs to the
// one thread that made it.

#include <systemd/sd-bus.h>

#include <string>

namespace omnira::platform::sdbus {

struct Bus {
  sd_bus* bus = nullptr;
  ~Bus() { sd_bus_flush_close_unref(bus); }
};

struct Message {
  sd_bus_message* message = nullptr;
  ~Message() { sd_bus_message_unref(message); }
};

// The system bus for an empty address, else a client of the bus at `address` (tests start
// their own). A negative errno on failure, as sd-bus gives it.
inline int open(Bus& bus, const std::string& address) {
  if (address.empty()) return sd_bus_open_system(&bus.bus);
  int r = sd_bus_new(&bus.bus);
  if (r < 0) return r;
  if ((r = sd_bus_set_address(bus.bus, address.c_str())) < 0) return r;
  if ((r = sd_bus_set_bus_client(bus.bus, 1)) < 0) return r;
  return sd_bus_start(bus.bus);
}

}  // namespace omnira::platform::sdbus
