#pragma once
// Fans under /sys/class/hwmon: where they are, what they read, and setting their speed.
//
// Numbering is the one FanStatus describes: hwmon devices in the order of the number after
// "hwmon" (numerically), within a device by the N of fanN_input, counted from 0 across the
// machine. A device's files are in hwmonN itself, or for drivers that still register the
// old way (applesmc) in hwmonN/device; `locateFans` is the one place that decides, so a
// listing and a setting always mean the same fan.
//
// How a speed is set depends on the chip:
//   fanN_target            pwmN_enable = 1 where it is not already, then fanN_target (rpm)
//   applesmc               fanN_manual = 1, then fanN_output (rpm)
//   only pwmN (0-255)      pwmN_enable = 1, then pwmN mapped linearly between fanN_min (or 0)
//                          and fanN_max. Approximate: duty cycle and speed are not linear on
//                          most fans. Without fanN_max there is nothing to map onto, and the
//                          fan is refused.
// The asked speed is clamped to the fan's fanN_min and fanN_max where the chip gives them.
//
// Before a fan's first change its control state (pwmN_enable, or applesmc's fanN_manual,
// and the speed file's value) is remembered; restore() writes it back: the saved mode, or
// automatic (pwmN_enable = 2, fanN_manual = 0) where it could not be read, and the saved
// speed where the fan was manual before or has no mode file at all. The remembered
// states are values (SavedControl) so the helper can keep them on disk and put fans back
// after a crash.
//
// Every write opens an existing file with O_WRONLY | O_NOFOLLOW and never creates one: a
// missing control file or one that is a symbolic link is a refusal.
//
// Owner: one thread at a time (the helper's loop). Failures are sentences for the person.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/FanStatus.h"

namespace omnira::platform {

// Where one fan's files are.
struct FanLocation {
  int index = 0;
  std::string chip;                 // the device's name file ("nct6775", "applesmc")
  std::filesystem::path folder;     // relative to the sysfs root: "class/hwmon/hwmon2"
  int number = 1;                   // the N of fanN_*

  friend bool operator==(const FanLocation&, const FanLocation&) = default;
};

// Every fan in the machine's numbering.
std::vector<FanLocation> locateFans(const Roots& roots);

// A fan's control state before Omnira touched it.
struct SavedControl {
  FanLocation fan;
  std::optional<int> mode;           // pwmN_enable, or applesmc's fanN_manual
  std::optional<std::string> speed;  // the speed file's text as it was (fanN_target, fanN_output or pwmN)

  friend bool operator==(const SavedControl&, const SavedControl&) = default;
};

class FanControl {
 public:
  struct Failure {
    std::string message;
  };

  explicit FanControl(Roots roots = {});

  // What each fan reads now. Figures that cannot be read stay absent.
  std::vector<FanStatus> fans() const;

  // Sets fan `index` to about `rpm` (clamped), remembering its state first; returns the
  // rpm asked of the chip after clamping.
  Result<double, Failure> setSpeed(int index, double rpm);
  // Gives fan `index` back: its remembered state if it was changed, else automatic mode.
  Result<void, Failure> setAutomatic(int index);

  // Writes back the remembered state of fan `index` (nothing when it was never changed),
  // or of every changed fan. A fan is forgotten once put back, even when a write failed:
  // trying again would not help, and the failure is returned.
  Result<void, Failure> restore(int index);
  Result<void, Failure> restore();

  // The fans changed and not yet put back, with their remembered states.
  std::vector<SavedControl> changed() const;

  // Puts back states remembered by an earlier run (read from the helper's state file). A
  // fan whose folder no longer holds the same chip is left alone and named in the failure.
  static Result<void, Failure> restoreSaved(const Roots& roots, const std::vector<SavedControl>& saved);

  // The state file's text: a JSON array. Decoding refuses anything malformed as a whole.
  static std::string encodeSaved(const std::vector<SavedControl>& saved);
  static std::optional<std::vector<SavedControl>> decodeSaved(std::string_view text);

 private:
  // The fan numbered `index` and its folder's control files, or why it cannot be set.
  struct Controlled;
  Result<Controlled, Failure> controlled(int index) const;

  Roots roots_;
  std::map<int, SavedControl> saved_;  // by fan index
};

}  // namespace omnira::platform
