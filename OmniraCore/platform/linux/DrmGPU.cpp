#include "OmniraCore/platform/linux/DrmGPU.h"

#include <algorithm>
#include <filesystem>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

std::optional<uint64_t> parseDrmCount(std::string_view text) { return parseNumber<uint64_t>(trim(text)); }

std::optional<double> parseCurrentClock(std::string_view text) {
  std::optional<double> clock;
  forEachLine(text, [&](std::string_view line) {
    line = trim(line);
    if (clock || !line.ends_with('*')) return;
    // "<level>: <clock>Mhz *"
    const auto fields = splitFields(line);
    if (fields.size() != 3 || !fields[0].ends_with(':')) return;
    std::string_view value = fields[1];
    if (value.size() < 3 || lowered(value.substr(value.size() - 3)) != "mhz") return;
    clock = parseNumber<double>(value.substr(0, value.size() - 3));
  });
  return clock;
}

namespace {

// "card" and digits only: card0-eDP-1 is a connector.
std::optional<unsigned> cardNumber(std::string_view name) {
  if (!name.starts_with("card")) return std::nullopt;
  return parseNumber<unsigned>(name.substr(4));
}

std::optional<uint64_t> count(const fs::path& path) {
  auto text = readTextFile(path, 64);
  if (!text) return std::nullopt;
  return parseDrmCount(*text);
}

// The first of several places a figure has lived across kernel versions.
std::optional<uint64_t> firstCount(const fs::path& card, std::initializer_list<const char*> places) {
  for (const char* place : places)
    if (auto value = count(card / place)) return value;
  return std::nullopt;
}

void readAmdgpu(const fs::path& card, DrmCard& out) {
  const fs::path device = card / "device";
  if (auto busy = count(device / "gpu_busy_percent")) out.busy = std::min<uint64_t>(*busy, 100) / 100.0;
  out.memoryUsedBytes = count(device / "mem_info_vram_used");
  out.memoryTotalBytes = count(device / "mem_info_vram_total");
  if (auto text = readTextFile(device / "pp_dpm_sclk", 4096)) out.frequencyMHz = parseCurrentClock(*text);
}

void readI915(const fs::path& card, DrmCard& out) {
  out.idleMilliseconds = firstCount(card, {"gt/gt0/rc6_residency_ms", "power/rc6_residency_ms"});
  if (auto mhz = firstCount(card, {"gt/gt0/rps_act_freq_mhz", "gt_act_freq_mhz"})) out.frequencyMHz = *mhz;
}

void readXe(const fs::path& card, DrmCard& out) {
  out.idleMilliseconds = count(card / "device/tile0/gt0/gtidle/idle_residency_ms");
  if (auto mhz = count(card / "device/tile0/gt0/freq0/act_freq")) out.frequencyMHz = *mhz;
}

}  // namespace

std::vector<DrmCard> readDrmCards(const Roots& roots) {
  std::vector<std::pair<unsigned, DrmCard>> cards;
  const fs::path base = roots.sys / "class" / "drm";
  std::error_code ec;
  for (fs::directory_iterator it(base, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    auto number = cardNumber(name);
    if (!number) continue;
    DrmCard card;
    card.name = name;
    card.source = "class/drm/" + name;
    std::error_code linkError;
    const auto driver = fs::read_symlink(it->path() / "device" / "driver", linkError);
    if (!linkError) card.driver = driver.filename().string();
    if (card.driver == "amdgpu") readAmdgpu(it->path(), card);
    else if (card.driver == "i915") readI915(it->path(), card);
    else if (card.driver == "xe") readXe(it->path(), card);
    cards.emplace_back(*number, std::move(card));
  }
  std::sort(cards.begin(), cards.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<DrmCard> out;
  for (auto& [number, card] : cards) out.push_back(std::move(card));
  return out;
}

std::vector<GPUReading> drmGPUReadings(const std::vector<DrmCard>& before, const std::vector<DrmCard>& after,
                                       double seconds) {
  std::vector<GPUReading> readings;
  for (const auto& card : after) {
    GPUReading r{card.name, card.driver, card.busy, card.memoryUsedBytes, card.memoryTotalBytes, card.frequencyMHz,
                 card.source};
    auto was = std::find_if(before.begin(), before.end(), [&](const DrmCard& c) { return c.name == card.name; });
    if (!r.busy && card.idleMilliseconds && was != before.end() && was->driver == card.driver &&
        was->idleMilliseconds && *card.idleMilliseconds >= *was->idleMilliseconds && seconds > 0) {
      const double idle = static_cast<double>(*card.idleMilliseconds - *was->idleMilliseconds) / 1000.0;
      r.busy = std::clamp(1.0 - idle / seconds, 0.0, 1.0);
    }
    // A card whose idle counter is all it gives still counts: it is known, its share comes next time.
    if (!r.busy && !r.memoryUsedBytes && !r.memoryTotalBytes && !r.frequencyMHz && !card.idleMilliseconds) continue;
    readings.push_back(std::move(r));
  }
  return readings;
}

std::vector<GPUReading> DrmGPUReader::read(double monotonicSeconds) {
  auto cards = readDrmCards(roots_);
  const double seconds = previousAt_ ? monotonicSeconds - *previousAt_ : 0;
  auto readings = drmGPUReadings(previous_, cards, seconds);
  previous_ = std::move(cards);
  previousAt_ = monotonicSeconds;
  return readings;
}

}  // namespace omnira::platform
