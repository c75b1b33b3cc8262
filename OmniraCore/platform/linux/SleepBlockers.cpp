#include "OmniraCore/platform/linux/SleepBlockers.h"


#include <cstring>

#include <spdlog/spdlog.h>

#include "OmniraCore/platform/linux/SdBus.h"

namespace omnira::platform {

namespace {

using sdbus::Bus;
using sdbus::Message;
using sdbus::open;

}  // namespace

std::vector<SleepBlocker> readSleepBlockers(const std::string& address, std::chrono::milliseconds timeout) {
  std::vector<SleepBlocker> blockers;
  Bus bus;
  if (int r = open(bus, address); r < 0) {
    spdlog::debug("No system bus for sleep blockers: {}", std::strerror(-r));
    return blockers;
  }
  Message call, reply;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  int r = sd_bus_message_new_method_call(bus.bus, &call.message, "org.freedesktop.login1", "/org/freedesktop/login1",
                                         "org.freedesktop.login1.Manager", "ListInhibitors");
  if (r >= 0) r = sd_bus_call(bus.bus, call.message, static_cast<uint64_t>(timeout.count()) * 1000, &error, &reply.message);
  if (r < 0) {
    spdlog::debug("No sleep blockers from logind: {}", error.message ? error.message : std::strerror(-r));
    sd_bus_error_free(&error);
    return blockers;
  }
  // a(ssssuu): what, who, why, mode, uid, pid
  if (sd_bus_message_enter_container(reply.message, SD_BUS_TYPE_ARRAY, "(ssssuu)") < 0) return blockers;
  const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
  uint32_t uid = 0, pid = 0;
  while (sd_bus_message_read(reply.message, "(ssssuu)", &what, &who, &why, &mode, &uid, &pid) > 0) {
    const std::string blocks = what ? what : "";
    // Only what stops sleep or idling; a delay lock lets the computer sleep after a moment.
    if (std::string(mode ? mode : "") != "block") continue;
    if (blocks.find("sleep") == std::string::npos && blocks.find("idle") == std::string::npos) continue;
    blockers.push_back({who ? who : "", why ? why : "", blocks, static_cast<int32_t>(pid)});
  }
  return blockers;
}

}  // namespace omnira::platform
