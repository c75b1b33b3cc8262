#include "OmniraCore/platform/linux/UPowerDevices.h"


#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <set>
#include <tuple>

#include "OmniraCore/platform/linux/SdBus.h"

namespace omnira::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* service = "org.freedesktop.UPower";
constexpr const char* deviceInterface = "org.freedesktop.UPower.Device";

constexpr uint32_t typeLinePower = 1, typeBattery = 2, typeUps = 3, typeComputer = 11;

using sdbus::Bus;
using sdbus::Message;
using sdbus::open;

// One method call within what is left of the deadline; false on any failure.
bool call(sd_bus* bus, Clock::time_point deadline, const char* path, const char* interface, const char* member,
          Message& reply, const char* argument = nullptr) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  if (left.count() <= 0) return false;
  Message request;
  if (sd_bus_message_new_method_call(bus, &request.message, service, path, interface, member) < 0) return false;
  // Not worth starting the daemon for: where it does not run there is nothing to relay.
  if (sd_bus_message_set_auto_start(request.message, 0) < 0) return false;
  if (argument && sd_bus_message_append(request.message, "s", argument) < 0) return false;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  const int r = sd_bus_call(bus, request.message, static_cast<uint64_t>(left.count()), &error, &reply.message);
  sd_bus_error_free(&error);
  return r >= 0;
}

struct DeviceProperties {
  uint32_t type = 0;
  std::string model;
  std::optional<double> percentage;
  uint32_t state = 0;
  bool powerSupply = false;
  std::string nativePath;
  bool present = true;
};

// Reads the variant that comes next if it holds `signature`, else skips it.
template <class T>
bool readVariant(sd_bus_message* m, const char* signature, T* value) {
  char type = 0;
  const char* contents = nullptr;
  if (sd_bus_message_peek_type(m, &type, &contents) <= 0 || type != SD_BUS_TYPE_VARIANT) return false;
  if (contents && std::strcmp(contents, signature) == 0) return sd_bus_message_read(m, "v", signature, value) >= 0;
  return sd_bus_message_skip(m, "v") >= 0;
}

// a{sv} of org.freedesktop.DBus.Properties.GetAll.
std::optional<DeviceProperties> parseProperties(sd_bus_message* m) {
  DeviceProperties p;
  if (sd_bus_message_enter_container(m, SD_BUS_TYPE_ARRAY, "{sv}") <= 0) return std::nullopt;
  while (sd_bus_message_enter_container(m, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
    const char* key = nullptr;
    if (sd_bus_message_read(m, "s", &key) < 0) return std::nullopt;
    const std::string_view name = key ? key : "";
    bool ok = true;
    const char* text = nullptr;
    int flag = 0;
    double number = -1;
    if (name == "Type") {
      ok = readVariant(m, "u", &p.type);
    } else if (name == "State") {
      ok = readVariant(m, "u", &p.state);
    } else if (name == "Model" || name == "NativePath") {
      ok = readVariant(m, "s", &text);
      if (text) (name == "Model" ? p.model : p.nativePath) = text;
    } else if (name == "Percentage") {
      ok = readVariant(m, "d", &number);
      if (number >= 0 && number <= 100) p.percentage = number;
    } else if (name == "PowerSupply" || name == "IsPresent") {
      flag = name == "IsPresent";
      ok = readVariant(m, "b", &flag);
      (name == "PowerSupply" ? p.powerSupply : p.present) = flag != 0;
    } else {
      ok = sd_bus_message_skip(m, "v") >= 0;
    }
    if (!ok || sd_bus_message_exit_container(m) < 0) return std::nullopt;
  }
  return p;
}

bool isPeripheral(const DeviceProperties& p) {
  if (!p.present || p.type == typeLinePower || p.type == typeUps || p.type == typeComputer) return false;
  if (p.type == typeBattery) return !p.powerSupply;
  return true;  // whatever else the daemon tracks runs on a battery of its own
}

std::optional<bool> charging(uint32_t state) {
  switch (state) {
    case 1: return true;                                    // charging
    case 2: case 3: case 4: case 5: case 6: return false;  // discharging, empty, full, pending charge or discharge
    default: return std::nullopt;
  }
}

std::string_view lastComponent(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string_view upowerKind(uint32_t type) {
  static constexpr std::array<std::string_view, 29> kinds = {
      "other",        "line-power",   "battery",     "ups",           "monitor",  "mouse",     "keyboard", "pda",
      "phone",        "media-player", "tablet",      "computer",      "gaming-input", "pen",   "touchpad", "modem",
      "network",      "headset",      "speakers",    "headphones",    "video",    "other-audio", "remote-control",
      "printer",      "scanner",      "camera",      "wearable",      "toy",      "other"};
  return type < kinds.size() ? kinds[type] : "other";
}

std::vector<UPowerPeripheral> readUPowerPeripherals(const std::string& address, std::chrono::milliseconds timeout) {
  std::vector<UPowerPeripheral> peripherals;
  const auto deadline = Clock::now() + timeout;
  Bus bus;
  if (open(bus, address) < 0) return peripherals;

  Message listing;
  if (!call(bus.bus, deadline, "/org/freedesktop/UPower", "org.freedesktop.UPower", "EnumerateDevices", listing))
    return peripherals;
  std::vector<std::string> paths;
  if (sd_bus_message_enter_container(listing.message, SD_BUS_TYPE_ARRAY, "o") <= 0) return peripherals;
  const char* path = nullptr;
  while (sd_bus_message_read(listing.message, "o", &path) > 0) paths.emplace_back(path);

  for (const auto& device : paths) {
    Message reply;
    if (!call(bus.bus, deadline, device.c_str(), "org.freedesktop.DBus.Properties", "GetAll", reply, deviceInterface))
      continue;
    auto p = parseProperties(reply.message);
    if (!p || !isPeripheral(*p)) continue;
    PeripheralBattery b;
    b.name = !p->model.empty() ? p->model : !p->nativePath.empty() ? p->nativePath : device;
    b.kind = std::string(upowerKind(p->type));
    if (p->percentage) b.level = *p->percentage / 100.0;
    b.charging = charging(p->state);
    b.source = "UPower";
    peripherals.push_back({std::move(b), p->nativePath});
  }
  return peripherals;
}

std::vector<PeripheralBattery> mergePeripherals(std::vector<PeripheralBattery> fromPowerSupply,
                                                const std::vector<UPowerPeripheral>& fromUPower) {
  std::set<std::string, std::less<>> supplies;
  for (const auto& b : fromPowerSupply) {
    constexpr std::string_view prefix = "power_supply/";
    if (std::string_view(b.source).starts_with(prefix)) supplies.insert(b.source.substr(prefix.size()));
  }
  for (const auto& u : fromUPower) {
    if (!u.nativePath.empty() && supplies.contains(lastComponent(u.nativePath))) continue;
    fromPowerSupply.push_back(u.battery);
  }
  std::stable_sort(fromPowerSupply.begin(), fromPowerSupply.end(), [](const PeripheralBattery& a, const PeripheralBattery& b) {
    return std::tie(a.source, a.name) < std::tie(b.source, b.name);
  });
  return fromPowerSupply;
}

}  // namespace omnira::platform
