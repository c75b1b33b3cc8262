// The applesmc driver's key listing as an SMC transport: two Intel MacBook Pros' listings
// (captured key by key from the driver) served through an in-memory key port, the real
// sysfs port on a copy of the driver's device folder, and fan writes into that copy.

#include "OmniraCore/platform/linux/AppleSMCSysfs.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <charconv>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "OmniraCore/foundation/Parse.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

const fs::path fixtures = fs::path(OMNIRA_FIXTURES) / "sys-intel-mac";
const fs::path deviceFixture = fixtures / "devices/platform/applesmc.768";

struct ListedKey {
  std::string name;
  std::string type;
  uint32_t length = 0;
  Bytes data;
};

// name, type, data length and hex data, tab-separated; other lines are notes.
std::vector<ListedKey> listing(const std::string& model) {
  std::ifstream in(fixtures / ("applesmc-keys-" + model + ".tsv"));
  std::vector<ListedKey> keys;
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    std::stringstream split(line);
    for (std::string field; std::getline(split, field, '\t');) fields.push_back(field);
    if (fields.size() != 4) continue;
    ListedKey key{fields[0], fields[1], parseNumber<uint32_t>(fields[2]).value(), {}};
    for (size_t i = 0; i + 1 < fields[3].size(); i += 2) {
      uint8_t byte = 0;
      const char* at = fields[3].data() + i;
      EXPECT_EQ(std::from_chars(at, at + 2, byte, 16).ptr, at + 2) << line;
      key.data.push_back(byte);
    }
    keys.push_back(std::move(key));
  }
  EXPECT_GT(keys.size(), 20u) << model;
  return keys;
}

// The driver's selection and files, held in memory.
class ListingPort : public AppleSMCKeyPort {
 public:
  explicit ListingPort(std::vector<ListedKey> listed) : keys(std::move(listed)) {}

  std::vector<ListedKey> keys;
  std::optional<size_t> selected;
  int selections = 0;
  bool broken = false;
  std::function<void()> afterData;  // another process, say, selecting in between

  std::optional<uint32_t> keyCount() override {
    return broken ? std::nullopt : std::optional(static_cast<uint32_t>(keys.size()));
  }
  bool select(uint32_t index) override {
    ++selections;
    if (broken || index >= keys.size()) return false;
    selected = index;
    return true;
  }
  std::optional<uint32_t> name() override { return code(&ListedKey::name); }
  std::optional<uint32_t> type() override { return code(&ListedKey::type); }
  std::optional<uint32_t> dataLength() override {
    return selected ? std::optional(keys[*selected].length) : std::nullopt;
  }
  std::optional<Bytes> data() override {
    if (!selected) return std::nullopt;
    Bytes bytes = keys[*selected].data;
    if (afterData) afterData();
    return bytes;
  }
  std::optional<uint32_t> code(std::string ListedKey::*field) const {
    if (!selected) return std::nullopt;
    return parseAppleSMCCode(keys[*selected].*field + "\n").toOptional();
  }

  ListedKey& operator[](std::string_view name) {
    for (auto& k : keys)
      if (k.name == name) return k;
    throw std::out_of_range(std::string(name));
  }
};

// A private copy of the driver's device folder, for tests that select keys or write fans.
struct DeviceCopy : TempTree {
  const fs::path& folder = root();
  DeviceCopy() : TempTree(deviceFixture) {}
  std::string text(const char* file) const { return fileText(folder / file); }
  void put(const char* file, std::string_view text) const { write(file, text); }
};

TEST(AppleSMCSysfs, ReadsAnOlderMacBookProThroughItsListing) {
  ListingPort port(listing("macbookpro8,2"));
  AppleSMCSysfs transport(port, "/nonexistent");
  SMC smc(transport);

  // Every listed key is found where the listing has it, with its size and type.
  for (const auto& k : port.keys) {
    auto key = smc.key(k.name);
    ASSERT_TRUE(key) << k.name;
    EXPECT_EQ(*key, (SMC::Key{SMC::code(k.name), k.length, SMC::code(k.type)})) << k.name;
  }
  EXPECT_FALSE(smc.key("PSTR"));  // this model has none
  EXPECT_FALSE(smc.key("zzzz"));  // after the last

  EXPECT_EQ(smc.value("TC0P"), 58.25);

  EXPECT_EQ(smc.fans(), (std::vector<FanReading>{{0, 1998.75, 2000, 6200}, {1, 2001, 2000, 6000}}));
  EXPECT_EQ(smc.fanIsManual(0), false);  // no mode keys: the FS! mask, 0x0002
  EXPECT_EQ(smc.fanIsManual(1), true);
}

TEST(AppleSMCSysfs, ReadsANewerMacBookProWithFloatFansAndModeKeys) {
  ListingPort port(listing("macbookpro16,1"));
  AppleSMCSysfs transport(port, "/nonexistent");
  SMC smc(transport);

  EXPECT_EQ(smc.fans(), (std::vector<FanReading>{{0, static_cast<float>(1795.6), 1800, 5300}, {1, 2003.5, 1800, 5600}}));
  EXPECT_EQ(smc.fanTarget(1), 3000.0);
  EXPECT_EQ(smc.fanIsManual(1), true);  // F1Md, though the mask is 0
  EXPECT_TRUE(smc.needsUnlock());
  EXPECT_EQ(smc.systemPower(), 23.5);
}

TEST(AppleSMCSysfs, RemembersWhereKeysAreButNotFailures) {
  ListingPort port(listing("macbookpro8,2"));
  AppleSMCSysfs transport(port, "/nonexistent");
  SMC smc(transport);

  ASSERT_EQ(smc.value("TC0P"), 58.25);
  const int firstLookup = port.selections;
  EXPECT_EQ(smc.value("TC0P"), 58.25);
  EXPECT_EQ(port.selections, firstLookup + 1);  // only the read's own selection
  EXPECT_FALSE(smc.key("PSTR"));
  const int afterMiss = port.selections;
  EXPECT_FALSE(smc.key("PSTR"));
  EXPECT_EQ(port.selections, afterMiss);

  // A port that fails is no verdict on the key: it is looked up again once the port works.
  port.broken = true;
  EXPECT_FALSE(smc.key("TB0T"));
  port.broken = false;
  EXPECT_EQ(smc.value("TB0T"), 31.5);

  // Another process selecting a different key between our selection and read.
  port.afterData = [&] { port.select(0); };
  EXPECT_FALSE(smc.value("TC0P"));
  port.afterData = nullptr;

  // Data shorter than the listed length, or longer than a record carries.
  port["TB1T"].data = {0x1F};
  EXPECT_FALSE(smc.value("TB1T"));
  port["F0ID"].length = 40;
  port["F0ID"].data.resize(40);
  auto id = smc.key("F0ID");
  ASSERT_TRUE(id);
  EXPECT_FALSE(smc.read(*id));
  // A malformed type in the listing is a failed lookup.
  port["TB2T"].type = "sp7";
  EXPECT_FALSE(smc.key("TB2T"));
}

TEST(AppleSMCSysfs, WritesFanKeysThroughTheFanFilesAndRefusesTheRest) {
  DeviceCopy device;
  ListingPort port(listing("macbookpro16,1"));
  AppleSMCSysfs transport(port, device.folder);
  SMC smc(transport);

  auto target = smc.key("F1Tg");
  ASSERT_TRUE(target);
  EXPECT_TRUE(smc.write(SMC::bytes(3200.4, *target).value(), *target));
  EXPECT_EQ(device.text("fan2_output"), "3200");

  auto mode = smc.key("F0Md");
  ASSERT_TRUE(mode);
  EXPECT_TRUE(smc.write(Bytes{1}, *mode));
  EXPECT_EQ(device.text("fan1_manual"), "1");
  EXPECT_FALSE(smc.write(Bytes{3}, *mode));  // no such mode for the driver
  EXPECT_EQ(device.text("fan1_manual"), "1");  // unchanged
  EXPECT_TRUE(smc.write(Bytes{0}, *mode));

  auto mask = smc.key("FS! ");
  ASSERT_TRUE(mask);
  EXPECT_TRUE(smc.write(Bytes{0x00, 0x01}, *mask));
  EXPECT_EQ(device.text("fan1_manual"), "1");

  // Keys the driver cannot write, and keys this Mac lacks.
  auto power = smc.key("PSTR");
  ASSERT_TRUE(power);
  EXPECT_FALSE(smc.write(SMC::bytes(10, *power).value(), *power));
  EXPECT_FALSE(smc.write(Bytes{1}, {SMC::code("F7Md"), 1, SMC::unsigned8}));
  // A size other than the listed one never reaches the files.
  EXPECT_FALSE(smc.write(Bytes{0x0B, 0xB8}, {SMC::code("F0Tg"), 2, SMC::unsignedFixed142}));
  // A fan the driver has no file for.
  fs::remove(device.folder / "fan2_output");
  EXPECT_FALSE(smc.write(SMC::bytes(2000, *target).value(), *target));
  // A negative speed does not become a huge one.
  auto firstTarget = smc.key("F0Tg");
  ASSERT_TRUE(firstTarget);
  EXPECT_FALSE(smc.write(SMC::bytes(-5, *firstTarget).value(), *firstTarget));
  EXPECT_EQ(device.text("fan1_output"), "2160");

  // Fixed-point speeds of older Macs are written as whole rpm; their mask covers both fans.
  ListingPort olderPort(listing("macbookpro8,2"));
  AppleSMCSysfs older(olderPort, device.folder);
  SMC olderSMC(older);
  auto olderTarget = olderSMC.key("F0Tg");
  ASSERT_TRUE(olderTarget);
  EXPECT_TRUE(olderSMC.write(SMC::bytes(4500.75, *olderTarget).value(), *olderTarget));
  EXPECT_EQ(device.text("fan1_output"), "4501");
}

TEST(AppleSMCSysfsKeyPort, SelectsByWritingTheIndexAndReadsTheSelectedKey) {
  auto found = appleSMCDevice(Roots{.proc = "/nonexistent", .sys = fixtures});
  ASSERT_TRUE(found);
  EXPECT_EQ(fs::canonical(*found), fs::canonical(deviceFixture));
  EXPECT_FALSE(appleSMCDevice(Roots{.proc = "/nonexistent", .sys = fs::path(OMNIRA_FIXTURES) / "system/laptop/sys"}));

  DeviceCopy device;
  AppleSMCSysfsKeyPort port(device.folder);
  EXPECT_EQ(port.keyCount(), 540u);
  EXPECT_TRUE(port.select(17));
  EXPECT_EQ(device.text("key_at_index"), "17");
  EXPECT_EQ(port.name(), SMC::code("TC0P"));
  EXPECT_EQ(port.data(), (Bytes{0x3A, 0x40}));

  // The whole path over the real files: the folder shows TC0P whatever is selected.
  AppleSMCSysfs transport(port, device.folder);
  SMC smc(transport);
  EXPECT_EQ(smc.value("TC0P"), 58.25);
  EXPECT_FALSE(smc.value("TB0T"));

  // Cut-off and garbled files.
  device.put("key_at_index_data_length", "two\n");
  device.put("key_at_index_type", "sp");
  device.put("key_at_index_name", "");
  device.put("key_count", "");
  EXPECT_FALSE(port.dataLength() || port.type() || port.name() || port.keyCount());
  for (const char* file : {"key_at_index_name", "key_at_index_type", "key_at_index_data_length", "key_count"})
    fs::copy_file(deviceFixture / file, device.folder / file, fs::copy_options::overwrite_existing);
  device.put("key_at_index_data", "\x3a");
  AppleSMCSysfs again(port, device.folder);
  SMC truncated(again);
  EXPECT_TRUE(truncated.key("TC0P"));
  EXPECT_FALSE(truncated.value("TC0P"));
  fs::remove(device.folder / "key_at_index");
  EXPECT_FALSE(port.select(1));
  EXPECT_FALSE(fs::exists(device.folder / "key_at_index"));
  EXPECT_FALSE(truncated.key("TB0T"));
}

TEST(AppleSMCSysfsKeyPort, ParsesNumbersAndFourByteCodes) {
  EXPECT_EQ(parseAppleSMCCode("ui8 \n").toOptional(), SMC::unsigned8);
  EXPECT_FALSE(parseAppleSMCCode("ui8\n").ok());
  EXPECT_EQ(parseAppleSMCNumber("540\n").toOptional(), 540u);
  EXPECT_FALSE(parseAppleSMCNumber("-1\n").ok());
  EXPECT_FALSE(parseAppleSMCNumber("99999999999\n").ok());
}

}  // namespace
}  // namespace omnira::platform
