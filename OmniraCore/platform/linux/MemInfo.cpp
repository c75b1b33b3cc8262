#include "OmniraCore/platform/linux/MemInfo.h"

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

uint64_t saturatingSum(std::initializer_list<std::optional<uint64_t>> parts) {
  uint64_t sum = 0;
  for (const auto& part : parts) {
    if (!part) continue;
    if (__builtin_add_overflow(sum, *part, &sum)) return UINT64_MAX;
  }
  return sum;
}

}  // namespace

Result<MemInfo, ParseFailure> parseMemInfo(std::string_view text) {
  MemInfo info;
  forEachKeyValue(text, [&](std::string_view key, std::string_view rest, std::string_view) {
    auto fields = splitFields(rest);
    if (fields.empty() || fields.size() > 2) return;
    auto value = parseNumber<uint64_t>(fields[0]);
    if (!value) return;
    uint64_t bytes = *value;
    if (fields.size() == 2) {
      if (fields[1] != "kB") return;
      if (__builtin_mul_overflow(bytes, uint64_t{1024}, &bytes)) return;
    }
    info.bytes.emplace(std::string(key), bytes);
  });
  if (!info["MemTotal"]) return fail(ParseFailure{"meminfo has no MemTotal line"});
  return info;
}

MemoryReading memoryReading(const MemInfo& info, uint64_t zramBytes) {
  MemoryReading m;
  m.total = info["MemTotal"].value_or(0);
  m.app = saturatingSum({info["AnonPages"], info["Shmem"]});
  m.wired = saturatingSum({info["SUnreclaim"], info["KernelStack"], info["PageTables"]});
  m.compressed = saturatingSum({zramBytes, info["Zswap"]});
  m.cached = saturatingSum({info["Active(file)"], info["Inactive(file)"]});
  const uint64_t swapTotal = info["SwapTotal"].value_or(0), swapFree = info["SwapFree"].value_or(0);
  m.swapUsed = swapTotal > swapFree ? swapTotal - swapFree : 0;
  if (auto available = info["MemAvailable"]) {
    m.available = *available;
  } else if (auto free = info["MemFree"]) {
    m.available = saturatingSum({free, info["Active(file)"], info["Inactive(file)"], info["SReclaimable"]});
  }
  if (m.available && *m.available > m.total) m.available = m.total;
  return m;
}

std::optional<uint64_t> parseZramMemoryUsed(std::string_view text) {
  auto fields = splitFields(trim(text));
  if (fields.size() < 3) return std::nullopt;
  return parseNumber<uint64_t>(fields[2]);
}

}  // namespace omnira::platform
