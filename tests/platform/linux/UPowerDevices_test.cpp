// The power daemon's peripherals, read over a real private bus from a stand-in daemon
// registered with sd-bus in a thread of the test; and the same reader where no daemon
// answers.

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstddef>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "OmniraCore/platform/linux/UPowerDevices.h"
#include "tests/Omnira/NotificationBus.h"

namespace omnira::platform {
namespace {

// Laid out for sd-bus to read each property straight from its field: strings as char
// pointers, booleans as int.
struct FakeDevice {
  std::string path;
  uint32_t type = 0;
  const char* model = "";
  double percentage = 0;
  uint32_t state = 0;
  int powerSupply = false;
  const char* nativePath = "";
  int present = true;
  double energy = 12.5;  // what the reader does not ask for
  const char* vendor = "Acme";
};

#define FAKE_PROPERTY(name, signature, field) \
  SD_BUS_PROPERTY(name, signature, nullptr, offsetof(FakeDevice, field), SD_BUS_VTABLE_PROPERTY_CONST)
const sd_bus_vtable deviceVtable[] = {
    SD_BUS_VTABLE_START(0),
    FAKE_PROPERTY("NativePath", "s", nativePath),   FAKE_PROPERTY("Vendor", "s", vendor),
    FAKE_PROPERTY("Model", "s", model),             FAKE_PROPERTY("PowerSupply", "b", powerSupply),
    FAKE_PROPERTY("Type", "u", type),               FAKE_PROPERTY("Energy", "d", energy),
    FAKE_PROPERTY("Percentage", "d", percentage),   FAKE_PROPERTY("IsPresent", "b", present),
    FAKE_PROPERTY("State", "u", state),             SD_BUS_VTABLE_END};
#undef FAKE_PROPERTY

struct Listing {
  std::vector<std::string> paths;
};

int enumerateDevices(sd_bus_message* call, void* userdata, sd_bus_error*) {
  const auto* listing = static_cast<const Listing*>(userdata);
  sd_bus_message* reply = nullptr;
  int r = sd_bus_message_new_method_return(call, &reply);
  if (r >= 0) r = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "o");
  for (const auto& path : listing->paths)
    if (r >= 0) r = sd_bus_message_append(reply, "o", path.c_str());
  if (r >= 0) r = sd_bus_message_close_container(reply);
  if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return r < 0 ? r : 1;
}

const sd_bus_vtable managerVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("EnumerateDevices", "", "ao", enumerateDevices, 0),
    SD_BUS_VTABLE_END};

// The daemon's side, on its own connection in its own thread. With `answers` false it owns
// the name but never reads its messages: a hung daemon.
class FakeUPower {
 public:
  FakeUPower(std::string address, std::vector<FakeDevice> devices, bool answers = true)
      : devices_(std::move(devices)) {
    for (const auto& d : devices_) listing_.paths.push_back(d.path);
    listing_.paths.push_back("/org/freedesktop/UPower/devices/vanished");  // listed, but no such object
    std::promise<std::string> ready;
    auto started = ready.get_future();
    thread_ = std::thread([this, address = std::move(address), answers, ready = std::move(ready)]() mutable {
      sd_bus* bus = nullptr;
      std::string failure;
      int r = sd_bus_new(&bus);
      if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
      if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
      if (r >= 0) r = sd_bus_start(bus);
      if (r >= 0)
        r = sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/UPower", "org.freedesktop.UPower", managerVtable,
                                     &listing_);
      for (auto& d : devices_)
        if (r >= 0)
          r = sd_bus_add_object_vtable(bus, nullptr, d.path.c_str(), "org.freedesktop.UPower.Device", deviceVtable, &d);
      if (r >= 0) r = sd_bus_request_name(bus, "org.freedesktop.UPower", 0);
      ready.set_value(r < 0 ? std::string("fake daemon: ") + std::strerror(-r) : std::string());
      while (r >= 0 && !stop_) {
        if (!answers) {
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
          continue;
        }
        if (sd_bus_process(bus, nullptr) > 0) continue;
        sd_bus_wait(bus, 50'000);
      }
      sd_bus_flush_close_unref(bus);
    });
    failure_ = started.get();
  }
  ~FakeUPower() {
    stop_ = true;
    thread_.join();
  }
  const std::string& failure() const { return failure_; }

 private:
  std::vector<FakeDevice> devices_;
  Listing listing_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
  std::string failure_;
};

const std::string devices = "/org/freedesktop/UPower/devices/";

TEST(UPowerDevices, PeripheralsFromTheDaemonAndTheMergeWithPowerSupply) {
  PrivateBus bus;
  ASSERT_TRUE(bus.failure().empty()) << bus.failure();
  FakeUPower daemon(bus.address().toStdString(),
                    {
                        {devices + "line_power_AC", 1, "", 0, 0, true, "AC"},
                        {devices + "battery_BAT0", 2, "5B10W13975", 66, 2, true, "BAT0"},
                        {devices + "mouse_hidpp_battery_0", 5, "MX Master 3", 45, 2, false, "hidpp_battery_0"},
                        {devices + "headset_dev_AA_BB", 17, "WH-1000XM4", 80, 1, false, "/org/bluez/hci0/dev_AA_BB"},
                        {devices + "bluetooth_generic", 28, "", 150, 0, false, "/org/bluez/hci0/dev_CC_DD"},
                        {devices + "keyboard_gone", 6, "K380", 10, 2, false, "hidpp_battery_9", false},
                        {devices + "ups_hiddev0", 3, "Back-UPS", 100, 4, true, "hiddev0"},
                        {devices + "gamepad", 12, "", 30, 4, false, ""},
                    });
  ASSERT_TRUE(daemon.failure().empty()) << daemon.failure();

  auto found = readUPowerPeripherals(bus.address().toStdString());
  ASSERT_EQ(found.size(), 4u);
  EXPECT_EQ(found[0], (UPowerPeripheral{{"MX Master 3", "mouse", 0.45, false, "UPower"}, "hidpp_battery_0"}));
  EXPECT_EQ(found[1], (UPowerPeripheral{{"WH-1000XM4", "headset", 0.8, true, "UPower"}, "/org/bluez/hci0/dev_AA_BB"}));
  // No model: named by its native path; a percentage past 100 and an unknown state are absent.
  EXPECT_EQ(found[2], (UPowerPeripheral{{"/org/bluez/hci0/dev_CC_DD", "other", std::nullopt, std::nullopt, "UPower"},
                                        "/org/bluez/hci0/dev_CC_DD"}));

  // The mouse also has its power_supply entry: it is kept once, as power_supply reads it.
  const PeripheralBattery fromSysfs{"MX Master 3", "other", 0.5, false, "power_supply/hidpp_battery_0"};
  auto merged = mergePeripherals({fromSysfs}, found);
  ASSERT_EQ(merged.size(), 4u);
  EXPECT_EQ(merged[3], fromSysfs);
}

// No daemon, no bus, or a daemon that never answers: an empty list, and soon.
TEST(UPowerDevices, NoDaemonNoBusOrAHungDaemonIsAnEmptyList) {
  PrivateBus bus;
  ASSERT_TRUE(bus.failure().empty()) << bus.failure();
  EXPECT_TRUE(readUPowerPeripherals(bus.address().toStdString()).empty());
  EXPECT_TRUE(readUPowerPeripherals("unix:path=/nonexistent/omnira-test-bus").empty());
  FakeUPower hung(bus.address().toStdString(), {{devices + "mouse", 5, "M", 50, 2, false, "hidpp_battery_0"}}, false);
  ASSERT_TRUE(hung.failure().empty()) << hung.failure();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(readUPowerPeripherals(bus.address().toStdString(), std::chrono::milliseconds(300)).empty());
  // A guard, not a measure: without its own time-out a call waits for the library's 25 s.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace omnira::platform
