#pragma once
// The System Management Controller of Intel Macs through the applesmc driver's sysfs
// files, answering SMC's parameter records as the controller would.
//
// The driver's device folder (<sys>/devices/platform/applesmc.768) lists the controller's
// keys by index: write an index to key_at_index, then read key_at_index_name, _type,
// _data_length and _data of that key. The selection is one value shared by every process,
// and writing it needs root, so this works for the privileged helper; unprivileged readers
// get no values. Keys are listed sorted by code, so a key is found by binary search.
//
// The driver offers no raw key writes. Writing goes through its fan files, which are the
// only writable keys it has (fan numbers in file names count from 1):
//   "F<i>Tg" -> fan<i+1>_output  (the decoded speed in rpm as decimal text)
//   "F<i>Md" -> fan<i+1>_manual  ("0" or "1"; other values are refused)
//   "FS! "   -> fan<N>_manual of each of the "FNum" fans, from bit N-1 of the mask
// Every other key is refused.
// https://git.kernel.org/pub/scm/linux/kernel/git/torvalds/linux.git/tree/drivers/hwmon/applesmc.c

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/SMC.h"

namespace omnira::platform {

// key_count, key_at_index, key_at_index_data_length: a decimal number and a newline.
Result<uint32_t, ParseFailure> parseAppleSMCNumber(std::string_view text);

// key_at_index_name, key_at_index_type: exactly four bytes (spaces included: "ui8 ") and a
// newline, as a big-endian four-character code.
Result<uint32_t, ParseFailure> parseAppleSMCCode(std::string_view text);

// The driver's device folder under the sysfs root, when the driver is loaded: the first
// <sys>/bus/platform/devices/applesmc.* in name order, else <sys>/devices/platform/applesmc.768.
std::optional<std::filesystem::path> appleSMCDevice(const Roots& roots);

// The driver's stateful key listing: select an index, then read that key's fields.
// Implementations are used from one thread; every failure is an absent value (or false).
class AppleSMCKeyPort {
 public:
  virtual ~AppleSMCKeyPort() = default;
  virtual std::optional<uint32_t> keyCount() = 0;
  virtual bool select(uint32_t index) = 0;
  // Of the selected key:
  virtual std::optional<uint32_t> name() = 0;  // code of the key's name
  virtual std::optional<uint32_t> type() = 0;  // code of its data type
  virtual std::optional<uint32_t> dataLength() = 0;
  virtual std::optional<std::vector<uint8_t>> data() = 0;  // the bytes as read, however many
};

// The port over the real files of one device folder.
class AppleSMCSysfsKeyPort final : public AppleSMCKeyPort {
 public:
  explicit AppleSMCSysfsKeyPort(std::filesystem::path deviceFolder);

  std::optional<uint32_t> keyCount() override;
  bool select(uint32_t index) override;  // needs write access to key_at_index (root)
  std::optional<uint32_t> name() override;
  std::optional<uint32_t> type() override;
  std::optional<uint32_t> dataLength() override;
  std::optional<std::vector<uint8_t>> data() override;

 private:
  std::optional<uint32_t> number(const char* file) const;
  std::optional<uint32_t> code(const char* file) const;

  std::filesystem::path folder_;
};

// The transport. Borrows the port, which must outlive it; writes go to the fan files in
// deviceFolder. Where a key is in the listing (or that it is not) is remembered for the
// transport's lifetime: the listing is fixed while the driver is loaded. One thread only.
//
// Commands 9 and 5 are answered; a key that is not listed gets result SMC::keyNotFound.
// A failed file access, a size other than the key's, a refused write or another command is
// a failed call (no record).
class AppleSMCSysfs final : public SMCTransport {
 public:
  AppleSMCSysfs(AppleSMCKeyPort& port, std::filesystem::path deviceFolder);

  std::optional<std::array<uint8_t, 80>> call(const std::array<uint8_t, 80>& input) override;

 private:
  struct Entry {
    uint32_t index = 0;
    uint32_t type = 0;
    uint32_t length = 0;
  };
  // No value when the port failed; a value holding no entry when the key is not listed.
  std::optional<std::optional<Entry>> find(uint32_t code);
  std::optional<std::vector<uint8_t>> read(uint32_t code, const Entry& entry);
  bool write(const SMC::Record& request, const Entry& entry);
  bool setFanFile(int fanNumber, std::string_view attribute, std::string_view text);

  AppleSMCKeyPort& port_;
  std::filesystem::path folder_;
  std::map<uint32_t, std::optional<Entry>> found_;
};

}  // namespace omnira::platform
