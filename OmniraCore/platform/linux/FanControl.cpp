#include "OmniraCore/platform/linux/FanControl.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kAppleSMC = "applesmc";
constexpr int kAutomatic = 2;  // pwmN_enable's usual automatic mode
constexpr int kManual = 1;

// "hwmon12" → 12; "fan3_input" → 3 (with prefix "fan", suffix "_input").
std::optional<int> numberBetween(std::string_view name, std::string_view prefix, std::string_view suffix) {
  if (!name.starts_with(prefix) || !name.ends_with(suffix) || name.size() <= prefix.size() + suffix.size())
    return std::nullopt;
  return parseNumber<int>(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
}

std::vector<int> fanNumbers(const fs::path& folder) {
  std::vector<int> numbers;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    if (auto n = numberBetween(it->path().filename().native(), "fan", "_input")) numbers.push_back(*n);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::optional<std::string> text(const fs::path& file) {
  auto read = readTextFile(file, 256);
  if (!read) return std::nullopt;
  return std::string(trim(*read));
}

std::optional<double> number(const fs::path& file) {
  auto read = text(file);
  if (!read) return std::nullopt;
  auto value = parseNumber<double>(*read);
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return value;
}

std::optional<int> integer(const fs::path& file) {
  auto read = text(file);
  if (!read) return std::nullopt;
  return parseNumber<int>(*read);
}

std::string file(const FanLocation& fan, std::string_view prefix, std::string_view suffix) {
  return fmt::format("{}{}{}", prefix, fan.number, suffix);
}

bool present(const fs::path& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

// The one way anything is written under sysfs: an existing regular file, never through a link.
Result<void, FanControl::Failure> writeControl(const fs::path& path, std::string_view value) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    if (errno == ELOOP) return fail(FanControl::Failure{fmt::format("{} is a link, which is not followed.", path.string())});
    if (errno == ENOENT) return fail(FanControl::Failure{fmt::format("{} does not exist.", path.string())});
    return fail(FanControl::Failure{fmt::format("{} cannot be opened: {}.", path.string(), std::strerror(errno))});
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(fd);
    return fail(FanControl::Failure{fmt::format("{} is not a plain file.", path.string())});
  }
  const std::string line = std::string(value) + "\n";
  ssize_t n;
  do {
    n = ::write(fd, line.data(), line.size());
  } while (n < 0 && errno == EINTR);
  const int error = errno;
  ::close(fd);
  if (n < 0) return fail(FanControl::Failure{fmt::format("{} refused {}: {}.", path.string(), value, std::strerror(error))});
  return {};
}

// A chip's device folder: hwmonN, or hwmonN/device for drivers that keep their files there.
fs::path deviceFolder(const fs::path& hwmon) {
  if (!fanNumbers(hwmon).empty()) return hwmon;
  if (!fanNumbers(hwmon / "device").empty()) return hwmon / "device";
  return hwmon;
}

std::string chipName(const fs::path& hwmon, const fs::path& folder) {
  if (auto name = text(folder / "name")) return *name;
  if (auto name = text(hwmon / "name")) return *name;
  return {};
}

enum class Method { target, appleSMC, pwm, none };

Method methodOf(const fs::path& folder, const FanLocation& fan) {
  if (fan.chip == kAppleSMC && present(folder / file(fan, "fan", "_output"))) return Method::appleSMC;
  if (present(folder / file(fan, "fan", "_target"))) return Method::target;
  if (present(folder / file(fan, "pwm", ""))) return Method::pwm;
  return Method::none;
}

// The files that hold the mode and the speed for a method.
std::string modeFile(const FanLocation& fan, Method method) {
  return method == Method::appleSMC ? file(fan, "fan", "_manual") : file(fan, "pwm", "_enable");
}
std::string speedFile(const FanLocation& fan, Method method) {
  switch (method) {
    case Method::target: return file(fan, "fan", "_target");
    case Method::appleSMC: return file(fan, "fan", "_output");
    case Method::pwm: return file(fan, "pwm", "");
    case Method::none: break;
  }
  return {};
}

std::string rpmText(double rpm) { return fmt::format("{}", static_cast<long long>(std::lround(rpm))); }

Result<void, FanControl::Failure> putBack(const Roots& roots, const SavedControl& saved) {
  const fs::path folder = roots.sys / saved.fan.folder;
  const Method method = methodOf(folder, saved.fan);
  if (method == Method::none)
    return fail(FanControl::Failure{fmt::format("Fan {} has no speed control any more.", saved.fan.index)});
  std::optional<FanControl::Failure> first;
  const fs::path mode = folder / modeFile(saved.fan, method);
  const bool hasMode = method == Method::appleSMC || present(mode);
  // A fan that was manual, or that has no mode at all, goes back to the speed it had; in
  // automatic mode the chip ignores that file.
  if (saved.speed && (!hasMode || saved.mode == kManual)) {
    if (auto wrote = writeControl(folder / speedFile(saved.fan, method), *saved.speed); !wrote) first = wrote.error();
  }
  if (hasMode) {
    const int value = saved.mode.value_or(method == Method::appleSMC ? 0 : kAutomatic);
    if (auto wrote = writeControl(mode, fmt::format("{}", value)); !wrote && !first) first = wrote.error();
  }
  if (first) return fail(*first);
  return {};
}

}  // namespace

std::vector<FanLocation> locateFans(const Roots& roots) {
  const fs::path base = roots.sys / "class" / "hwmon";
  std::vector<std::pair<int, std::string>> devices;
  std::error_code ec;
  for (fs::directory_iterator it(base, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().native();
    if (auto n = numberBetween(name, "hwmon", "")) devices.emplace_back(*n, name);
  }
  std::sort(devices.begin(), devices.end());
  std::vector<FanLocation> fans;
  for (const auto& [n, name] : devices) {
    const fs::path hwmon = base / name;
    const fs::path folder = deviceFolder(hwmon);
    const std::string chip = chipName(hwmon, folder);
    for (const int number : fanNumbers(folder)) {
      fans.push_back(FanLocation{static_cast<int>(fans.size()), chip, folder.lexically_relative(roots.sys), number});
    }
  }
  return fans;
}

FanControl::FanControl(Roots roots) : roots_(std::move(roots)) {}

std::vector<FanStatus> FanControl::fans() const {
  std::vector<FanStatus> statuses;
  for (const auto& fan : locateFans(roots_)) {
    const fs::path folder = roots_.sys / fan.folder;
    FanStatus status;
    status.index = fan.index;
    status.chip = fan.chip;
    status.label = text(folder / file(fan, "fan", "_label")).value_or(fmt::format("Fan {}", fan.number));
    status.rpm = number(folder / file(fan, "fan", "_input"));
    status.minimumRPM = number(folder / file(fan, "fan", "_min"));
    status.maximumRPM = number(folder / file(fan, "fan", "_max"));
    const Method method = methodOf(folder, fan);
    if (method == Method::target || method == Method::appleSMC) status.targetRPM = number(folder / speedFile(fan, method));
    if (method == Method::appleSMC) {
      if (auto manual = integer(folder / modeFile(fan, method)))
        status.mode = *manual == 0 ? FanStatus::Mode::automatic : FanStatus::Mode::manual;
    } else if (auto enable = integer(folder / file(fan, "pwm", "_enable"))) {
      status.mode = *enable == 0   ? FanStatus::Mode::fullSpeed
                    : *enable == 1 ? FanStatus::Mode::manual
                                   : FanStatus::Mode::automatic;
    }
    status.source = fan.folder.string();
    statuses.push_back(std::move(status));
  }
  return statuses;
}

struct FanControl::Controlled {
  FanLocation fan;
  fs::path folder;
  Method method;
};

Result<FanControl::Controlled, FanControl::Failure> FanControl::controlled(int index) const {
  const auto fans = locateFans(roots_);
  if (index < 0 || static_cast<size_t>(index) >= fans.size())
    return fail(Failure{fans.empty() ? "This machine shows no fans."
                                     : fmt::format("There is no fan {}; fans are numbered 0 to {}.", index, fans.size() - 1)});
  const FanLocation& fan = fans[static_cast<size_t>(index)];
  const fs::path folder = roots_.sys / fan.folder;
  const Method method = methodOf(folder, fan);
  if (method == Method::none) return fail(Failure{fmt::format("Fan {} cannot be controlled: its chip offers no speed setting.", index)});
  return Controlled{fan, folder, method};
}

Result<double, FanControl::Failure> FanControl::setSpeed(int index, double rpm) {
  if (!std::isfinite(rpm) || rpm < 0) return fail(Failure{"A fan speed is a number of rpm, 0 or more."});
  auto found = controlled(index);
  if (!found) return fail(found.error());
  const auto& [fan, folder, method] = *found;

  const auto minimum = number(folder / file(fan, "fan", "_min"));
  const auto maximum = number(folder / file(fan, "fan", "_max"));
  if (method == Method::pwm && !maximum)
    return fail(Failure{fmt::format("Fan {} is set by duty cycle and its chip gives no top speed to map rpm onto.", index)});
  double clamped = rpm;
  if (minimum) clamped = std::max(clamped, *minimum);
  if (maximum) clamped = std::min(clamped, *maximum);

  const std::string mode = modeFile(fan, method);
  const std::string speed = speedFile(fan, method);
  // Remembered once something was written: a fan a refused write never touched needs nothing put back.
  const SavedControl before{fan, integer(folder / mode), text(folder / speed)};
  const auto remember = [&] { saved_.try_emplace(index, before); };
  // Manual first: several chips ignore a speed written in automatic mode.
  if (method == Method::appleSMC || (present(folder / mode) && before.mode != kManual)) {
    if (auto wrote = writeControl(folder / mode, "1"); !wrote) return fail(wrote.error());
    remember();
  }
  std::string value;
  if (method == Method::pwm) {
    const double low = minimum.value_or(0);
    const double span = *maximum - low;
    const double share = span > 0 ? (clamped - low) / span : 1.0;
    value = fmt::format("{}", std::clamp(std::lround(share * 255.0), 0L, 255L));
  } else {
    value = rpmText(clamped);
  }
  if (auto wrote = writeControl(folder / speed, value); !wrote) return fail(wrote.error());
  remember();
  return clamped;
}

Result<void, FanControl::Failure> FanControl::setAutomatic(int index) {
  if (saved_.count(index)) return restore(index);
  auto found = controlled(index);
  if (!found) return fail(found.error());
  const auto& [fan, folder, method] = *found;
  const fs::path mode = folder / modeFile(fan, method);
  if (method != Method::appleSMC && !present(mode)) return {};  // nothing but a speed file: always as the chip sets it
  return writeControl(mode, method == Method::appleSMC ? "0" : fmt::format("{}", kAutomatic));
}

Result<void, FanControl::Failure> FanControl::restore(int index) {
  const auto found = saved_.find(index);
  if (found == saved_.end()) return {};
  const SavedControl saved = found->second;
  saved_.erase(found);
  return putBack(roots_, saved);
}

Result<void, FanControl::Failure> FanControl::restore() {
  std::optional<Failure> first;
  while (!saved_.empty()) {
    if (auto done = restore(saved_.begin()->first); !done && !first) first = done.error();
  }
  if (first) return fail(*first);
  return {};
}

std::vector<SavedControl> FanControl::changed() const {
  std::vector<SavedControl> list;
  for (const auto& [index, saved] : saved_) list.push_back(saved);
  return list;
}

Result<void, FanControl::Failure> FanControl::restoreSaved(const Roots& roots, const std::vector<SavedControl>& saved) {
  std::optional<Failure> first;
  for (const auto& entry : saved) {
    const fs::path folder = roots.sys / entry.fan.folder;
    const fs::path hwmon = entry.fan.folder.filename() == "device" ? folder.parent_path() : folder;
    if (chipName(hwmon, folder) != entry.fan.chip) {
      if (!first)
        first = Failure{fmt::format("{} no longer holds the {} chip; its fan {} was left alone.", entry.fan.folder.string(),
                                    entry.fan.chip, entry.fan.number)};
      continue;
    }
    if (auto done = putBack(roots, entry); !done && !first) first = done.error();
  }
  if (first) return fail(*first);
  return {};
}

std::string FanControl::encodeSaved(const std::vector<SavedControl>& saved) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& entry : saved) {
    nlohmann::json item{{"index", entry.fan.index},
                        {"chip", entry.fan.chip},
                        {"folder", entry.fan.folder.string()},
                        {"number", entry.fan.number}};
    if (entry.mode) item["mode"] = *entry.mode;
    if (entry.speed) item["speed"] = *entry.speed;
    list.push_back(std::move(item));
  }
  return jsonText(list);
}

std::optional<std::vector<SavedControl>> FanControl::decodeSaved(std::string_view text) {
  const auto list = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!list.is_array()) return std::nullopt;
  std::vector<SavedControl> saved;
  for (const auto& item : list) {
    if (!item.is_object()) return std::nullopt;
    const auto index = item.find("index"), chip = item.find("chip"), folder = item.find("folder"),
               number = item.find("number");
    if (index == item.end() || !index->is_number_integer() || chip == item.end() || !chip->is_string() ||
        folder == item.end() || !folder->is_string() || number == item.end() || !number->is_number_integer())
      return std::nullopt;
    // The folder comes back from disk: it must stay under the sysfs root.
    const fs::path relative = folder->get<std::string>();
    if (relative.is_absolute() || !relative.string().starts_with("class/hwmon/hwmon") ||
        std::any_of(relative.begin(), relative.end(), [](const fs::path& part) { return part == ".."; }))
      return std::nullopt;
    SavedControl entry{FanLocation{index->get<int>(), chip->get<std::string>(), relative, number->get<int>()},
                       std::nullopt, std::nullopt};
    if (const auto mode = item.find("mode"); mode != item.end()) {
      if (!mode->is_number_integer()) return std::nullopt;
      entry.mode = mode->get<int>();
    }
    if (const auto speed = item.find("speed"); speed != item.end()) {
      if (!speed->is_string() || !parseNumber<long long>(speed->get<std::string>())) return std::nullopt;
      entry.speed = speed->get<std::string>();
    }
    saved.push_back(std::move(entry));
  }
  return saved;
}

}  // namespace omnira::platform
