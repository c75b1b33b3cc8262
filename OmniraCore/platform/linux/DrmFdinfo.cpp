#include "OmniraCore/platform/linux/DrmFdinfo.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

// "<uint> [KiB|MiB]"; no unit is bytes.
std::optional<uint64_t> parseSize(std::string_view value) {
  const auto fields = splitFields(trim(value));
  if (fields.empty() || fields.size() > 2) return std::nullopt;
  auto number = parseNumber<uint64_t>(fields[0]);
  if (!number) return std::nullopt;
  uint64_t unit = 1;
  if (fields.size() == 2) {
    if (fields[1] == "KiB") unit = 1024;
    else if (fields[1] == "MiB") unit = 1024 * 1024;
    else return std::nullopt;
  }
  if (*number > UINT64_MAX / unit) return std::nullopt;
  return *number * unit;
}

// "<uint> ns"
std::optional<uint64_t> parseNanoseconds(std::string_view value) {
  const auto fields = splitFields(trim(value));
  if (fields.size() != 2 || fields[1] != "ns") return std::nullopt;
  return parseNumber<uint64_t>(fields[0]);
}

void put(std::map<std::string, uint64_t, std::less<>>& into, std::string_view name, std::optional<uint64_t> value) {
  if (value && !name.empty()) into[std::string(name)] = *value;
}

std::string clientKey(const DrmClient& c) {
  return c.driver + '\n' + c.pdev + '\n' + std::to_string(c.clientId);
}

}  // namespace

Result<DrmClient, ParseFailure> parseDrmFdinfo(std::string_view text) {
  DrmClient client;
  std::optional<uint64_t> clientId;
  std::map<std::string, uint64_t, std::less<>> legacyMemory;
  forEachKeyValue(text, [&](std::string_view key, std::string_view value, std::string_view) {
    if (!key.starts_with("drm-")) return;
    key.remove_prefix(4);
    auto after = [&](std::string_view prefix) -> std::optional<std::string_view> {
      if (!key.starts_with(prefix)) return std::nullopt;
      return key.substr(prefix.size());
    };
    if (key == "driver") client.driver = std::string(trim(value));
    else if (key == "pdev") client.pdev = std::string(trim(value));
    else if (key == "client-id") clientId = parseNumber<uint64_t>(trim(value));
    else if (auto name = after("engine-capacity-")) put(client.engineCapacity, *name, parseNumber<uint64_t>(trim(value)));
    else if (auto name = after("engine-")) put(client.engineNanoseconds, *name, parseNanoseconds(value));
    else if (auto name = after("total-cycles-")) put(client.totalCycles, *name, parseNumber<uint64_t>(trim(value)));
    else if (auto name = after("cycles-")) put(client.cycles, *name, parseNumber<uint64_t>(trim(value)));
    else if (auto name = after("total-")) put(client.totalBytes, *name, parseSize(value));
    else if (auto name = after("resident-")) put(client.residentBytes, *name, parseSize(value));
    else if (auto name = after("memory-")) put(legacyMemory, *name, parseSize(value));
  });
  if (client.driver.empty()) return fail(ParseFailure{"fdinfo names no DRM driver"});
  if (!clientId) return fail(ParseFailure{"fdinfo has no DRM client id"});
  client.clientId = *clientId;
  // drm-memory-<region> is the older name of drm-resident-<region>.
  for (auto& [region, bytes] : legacyMemory) client.residentBytes.try_emplace(region, bytes);
  return client;
}

std::vector<DrmClient> readDrmClients(const Roots& roots, pid_t pid) {
  std::vector<DrmClient> clients;
  std::set<std::string> seen;
  const fs::path process = roots.proc / std::to_string(pid);
  std::error_code ec;
  for (fs::directory_iterator it(process / "fd", ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code linkError;
    const auto target = fs::read_symlink(it->path(), linkError);
    if (linkError || !target.native().starts_with("/dev/dri/")) continue;
    auto text = readTextFile(process / "fdinfo" / it->path().filename(), 16384);
    if (!text) continue;
    auto client = parseDrmFdinfo(*text);
    if (!client) continue;
    if (!seen.insert(clientKey(*client)).second) continue;
    clients.push_back(std::move(*client));
  }
  return clients;
}

ProcessGPUUse drmProcessUse(const std::vector<DrmClient>& before, const std::vector<DrmClient>& after, double seconds) {
  ProcessGPUUse use;
  std::map<std::string, double> engineShare;  // "<device>\n<engine>" -> summed share
  for (const auto& now : after) {
    for (const auto& [region, bytes] : now.residentBytes) use.memoryBytes = use.memoryBytes.value_or(0) + bytes;

    auto was = std::find_if(before.begin(), before.end(),
                            [&](const DrmClient& c) { return clientKey(c) == clientKey(now); });
    if (was == before.end()) continue;
    const std::string device = now.driver + '\n' + now.pdev + '\n';
    auto capacity = [&](const std::string& engine) {
      auto it = now.engineCapacity.find(engine);
      return it == now.engineCapacity.end() || it->second == 0 ? 1.0 : static_cast<double>(it->second);
    };
    if (seconds > 0) {
      for (const auto& [engine, ns] : now.engineNanoseconds) {
        auto old = was->engineNanoseconds.find(engine);
        if (old == was->engineNanoseconds.end() || old->second > ns) continue;
        engineShare[device + engine] += static_cast<double>(ns - old->second) / (seconds * 1e9 * capacity(engine));
      }
    }
    for (const auto& [engine, count] : now.cycles) {
      if (now.engineNanoseconds.contains(engine)) continue;
      auto total = now.totalCycles.find(engine);
      auto oldCount = was->cycles.find(engine);
      auto oldTotal = was->totalCycles.find(engine);
      if (total == now.totalCycles.end() || oldCount == was->cycles.end() || oldTotal == was->totalCycles.end())
        continue;
      if (oldCount->second > count || oldTotal->second >= total->second) continue;
      engineShare[device + engine] += static_cast<double>(count - oldCount->second) /
                                      (static_cast<double>(total->second - oldTotal->second) * capacity(engine));
    }
  }
  for (const auto& [engine, share] : engineShare) use.busy = std::max(use.busy.value_or(0.0), std::clamp(share, 0.0, 1.0));
  return use;
}

}  // namespace omnira::platform
