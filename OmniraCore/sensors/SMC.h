#pragma once
// Keys of the System Management Controller: looking a key up, reading its bytes and
// decoding them to a number, encoding a number into a key's bytes and writing them.
//
// The controller is reached through an SMCTransport that exchanges one 80-byte parameter
// record per call (on a Mac the "AppleSMC" user client's struct method 2; on Linux
// platform/linux/AppleSMCSysfs.h answers the same records from the applesmc driver).
//
// Ownership and threads: SMC borrows its transport by reference; the transport must outlive
// it. SMC keeps no state of its own, but transports are not required to be thread-safe, so
// one SMC and its transport belong to one thread (the sampling thread, or the helper).
//
// Failures are silent: a failed call, a non-zero result byte, an unknown type or a wrong
// size is an absent value (or false for a write), never an exception or a log line.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "OmniraCore/sensors/FanReading.h"

namespace omnira {

// SMC::code's packing, outside the class so the class's own constants can use it.
constexpr uint32_t fourCharacterCode(std::string_view name) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) {
    const uint8_t byte = i < name.size() ? static_cast<uint8_t>(name[i]) : uint8_t{' '};
    value = (value << 8) | byte;
  }
  return value;
}

class SMCTransport {
 public:
  virtual ~SMCTransport() = default;
  // One exchange of the parameter record (SMC::Record's byte form). No value when the call
  // itself failed; a record whose result byte is not 0 is the controller's refusal.
  virtual std::optional<std::array<uint8_t, 80>> call(const std::array<uint8_t, 80>& input) = 0;
};

class SMC {
 public:
  struct Key {
    uint32_t code = 0;  // four-character code of the key's name
    uint32_t size = 0;  // data size in bytes
    uint32_t type = 0;  // four-character code of the data type

    friend bool operator==(const Key&, const Key&) = default;
  };

  // The parameter record. Its multi-byte integers are in the machine's native order, which
  // is little-endian on every Mac; encode/decode use little-endian whatever the host.
  struct Record {
    static constexpr size_t byteCount = 80;

    struct Version {
      uint8_t major = 0, minor = 0, build = 0, reserved = 0;
      uint16_t release = 0;
      friend bool operator==(const Version&, const Version&) = default;
    };
    struct PowerLimits {
      uint16_t version = 0, length = 0;
      uint32_t cpuLimit = 0, gpuLimit = 0, memoryLimit = 0;
      friend bool operator==(const PowerLimits&, const PowerLimits&) = default;
    };
    struct KeyInfo {
      uint32_t dataSize = 0;
      uint32_t dataType = 0;
      uint8_t dataAttributes = 0;
      friend bool operator==(const KeyInfo&, const KeyInfo&) = default;
    };

    uint32_t key = 0;           // offset 0
    Version version;            // offset 4, 6 bytes
    PowerLimits powerLimits;    // offset 12, 16 bytes
    KeyInfo keyInfo;            // offsets 28, 32, 36
    uint8_t result = 0;         // offset 40: 0 = success
    uint8_t status = 0;         // offset 41
    uint8_t command = 0;        // offset 42
    uint32_t data32 = 0;        // offset 44
    std::array<uint8_t, 32> bytes{};  // offset 48

    // Padding bytes are written as 0 and ignored when decoding.
    std::array<uint8_t, byteCount> encode() const;
    static Record decode(const std::array<uint8_t, byteCount>& bytes);

    friend bool operator==(const Record&, const Record&) = default;
  };

  // Commands carried in Record::command.
  static constexpr uint8_t readKeyInfo = 9;  // returns keyInfo.dataSize and dataType
  static constexpr uint8_t readBytes = 5;    // request carries key and keyInfo.dataSize
  static constexpr uint8_t writeBytes = 6;   // request carries key, keyInfo.dataSize and bytes
  // The result byte the controller gives for a key it does not have.
  static constexpr uint8_t keyNotFound = 0x84;
  // The most bytes a record carries.
  static constexpr size_t maximumDataSize = 32;

  // Big-endian four-character code: "FNum" is 0x464E756D. A longer name uses its first
  // four bytes; a shorter one is padded with spaces, as the controller's own codes are
  // ("ui8 ", "FS! ").
  static constexpr uint32_t code(std::string_view name) { return fourCharacterCode(name); }

  // The data types decoded by name (float_ because float is taken). Any other 2-byte type
  // "sp??" / "fp??" is generic fixed point, signed for "s" and unsigned for "f", with the
  // fourth character, a hex digit, giving the fraction bits ("sp5a": 10).
  static constexpr uint32_t float_ = fourCharacterCode("flt ");          // 4 bytes, native (little-endian) IEEE float
  static constexpr uint32_t signedFixed78 = fourCharacterCode("sp78");   // 2 bytes, big-endian signed ÷ 256
  static constexpr uint32_t unsignedFixed142 = fourCharacterCode("fpe2");  // 2 bytes, big-endian unsigned ÷ 4
  static constexpr uint32_t unsigned8 = fourCharacterCode("ui8 ");       // 1 byte

  // The key's bytes as a number by its type; no value for another type, a size that does
  // not fit the type, or fewer bytes than the key's size.
  static std::optional<double> decode(std::span<const uint8_t> bytes, const Key& key);

  // A number as the key's bytes: "flt " as a native float; "ui8 " rounded toward zero and
  // clamped to 0...255; fixed point as value × 2^fraction bits rounded to nearest, clamped
  // to the type's 16-bit range (so a negative value writes 0 to an unsigned key), big-endian.
  // No bytes for a value that is not finite, another type, or a size that does not fit it.
  static std::optional<std::vector<uint8_t>> bytes(double value, const Key& key);

  explicit SMC(SMCTransport& transport) : transport_(transport) {}

  // One exchange; no value when the transport fails or the result byte is not 0.
  std::optional<Record> call(const Record& input);

  // The key's size and type (command 9); no value for a key this controller lacks.
  std::optional<Key> key(std::string_view name);
  // The key's raw bytes (command 5), exactly key.size of them.
  std::optional<std::vector<uint8_t>> read(const Key& key);
  // The key's bytes decoded by its type.
  std::optional<double> value(const Key& key);
  std::optional<double> value(std::string_view name);
  // Writes the bytes (command 6). Refused, without any call, unless the byte count equals
  // the key's size and is at most 32. True when the controller took them.
  bool write(std::span<const uint8_t> bytes, const Key& key);

  // "FNum" truncated to an integer; no value when missing, below 1 or implausibly large.
  std::optional<int> fanCount();
  // Fans 0..<fanCount whose "F<i>Ac" key exists and decodes.
  std::vector<FanReading> fans();
  // "F<i>Tg": the speed the fan is asked to hold.
  std::optional<double> fanTarget(int index);
  // "F<i>Md" == 1 where the Mac has that key, else bit i of the "FS! " mask (read as a
  // big-endian unsigned integer of its size); no value when neither is readable.
  std::optional<bool> fanIsManual(int index);
  // "Ftst" exists: fans must be unlocked before manual control.
  bool needsUnlock();
  // "PSTR": the whole system's power draw in watts.
  std::optional<double> systemPower();

 private:
  SMCTransport& transport_;
};

}  // namespace omnira
