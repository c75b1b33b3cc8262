#include "OmniraCore/sampling/AppGrouper.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include <fmt/format.h>

#include "OmniraCore/foundation/SystemText.h"
#include "OmniraCore/sampling/AppIdentifier.h"

namespace omnira {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

bool isDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view lastComponent(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

AppGrouper::AppGrouper(std::string systemName) : AppGrouper(std::move(systemName), Options{}) {}

AppGrouper::AppGrouper(std::string systemName, Options options)
    : systemName_(std::move(systemName)),
      options_(std::move(options)),
      system_(std::make_shared<const Descriptor>(
          Descriptor{std::string(systemGroupID), systemName_, GroupKind::system, std::nullopt})) {}

AppGrouper::~AppGrouper() = default;

std::vector<std::string> AppGrouper::macOSSystemPathPrefixes() {
  return {"/System/", "/usr/libexec/", "/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/", "/Library/Apple/"};
}

AppGrouper::Descriptor AppGrouper::systemDescriptor() const { return *system_; }

// MARK: text rules

bool AppGrouper::isVersion(std::string_view piece) {
  if (!piece.empty() && piece.front() == 'v') piece.remove_prefix(1);
  size_t parts = 0;
  while (true) {
    const auto dot = piece.find('.');
    if (!isDigits(piece.substr(0, dot))) return false;
    ++parts;
    if (dot == std::string_view::npos) break;
    piece.remove_prefix(dot + 1);
  }
  return parts >= 2;
}

bool AppGrouper::isBuildHash(std::string_view piece) {
  if (piece.size() < 7 || piece.size() > 40) return false;
  bool digit = false;
  for (const char c : piece) {
    if (c >= '0' && c <= '9') {
      digit = true;
    } else if (c < 'a' || c > 'f') {
      return false;
    }
  }
  return digit;
}

std::string AppGrouper::canonicalID(std::string_view id) {
  if (!startsWith(id, "/") && !startsWith(id, "exec:/")) return std::string(id);
  if (id.find_first_of("0123456789") == std::string_view::npos) return std::string(id);

  // Empty pieces are kept so that leading and doubled slashes survive the rebuild.
  std::vector<std::string_view> pieces;
  for (size_t start = 0;;) {
    const auto slash = id.find('/', start);
    pieces.push_back(id.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start));
    if (slash == std::string_view::npos) break;
    start = slash + 1;
  }
  const auto folds = [](std::string_view piece) { return piece == "*" || isVersion(piece); };
  if (std::none_of(pieces.begin(), pieces.end(), folds)) return std::string(id);

  std::vector<std::string_view> out;
  out.reserve(pieces.size());
  bool afterStar = false;
  for (size_t i = 0; i < pieces.size(); ++i) {
    const auto piece = pieces[i];
    if (folds(piece)) {
      out.push_back("*");
      afterStar = true;
    } else if (afterStar && isBuildHash(piece)) {
      // version/hash install folders: the hash goes; hash/version becomes one "*"
      if (i + 1 < pieces.size() && folds(pieces[i + 1])) {
        out.push_back("*");
        ++i;
      } else {
        afterStar = false;
      }
    } else {
      out.push_back(piece);
      afterStar = false;
    }
  }
  return fmt::format("{}", fmt::join(out, "/"));
}

AppGrouper::Descriptor AppGrouper::descriptorForPath(std::string_view path) const {
  for (const auto& prefix : options_.systemPathPrefixes) {
    if (startsWith(path, prefix)) return *system_;
  }
  const std::string folded = options_.foldInstallFolders ? options_.foldInstallFolders(path) : std::string(path);
  return {canonicalID("exec:" + folded),
          std::string(lastComponent(folded)), GroupKind::other, std::nullopt};
}

// MARK: descriptors of processes

std::shared_ptr<const AppGrouper::Descriptor> AppGrouper::compute(const ProcessSample& sample) const {
  auto computed = computeFromBytes(sample);
  // Ids and names are written to files and shown; paths and names from the system are bytes.
  if (isUTF8(computed->id) && isUTF8(computed->name)) return computed;
  Descriptor shown = *computed;
  shown.id = shownText(shown.id);
  shown.name = shownText(shown.name);
  return std::make_shared<const Descriptor>(std::move(shown));
}

std::shared_ptr<const AppGrouper::Descriptor> AppGrouper::computeFromBytes(const ProcessSample& sample) const {
  if (options_.identifier) {
    if (auto verdict = options_.identifier->identify(sample)) {
      if (std::holds_alternative<AppIdentifier::System>(*verdict)) return system_;
      return std::make_shared<const Descriptor>(std::get<Descriptor>(std::move(*verdict)));
    }
  }
  if (sample.path) {
    auto descriptor = descriptorForPath(*sample.path);
    if (descriptor.kind == GroupKind::system) return system_;
    return std::make_shared<const Descriptor>(std::move(descriptor));
  }
  if (sample.pid == 0 || sample.name.empty()) return system_;
  return std::make_shared<const Descriptor>(Descriptor{"name:" + sample.name, sample.name, GroupKind::other, std::nullopt});
}

std::string AppGrouper::cacheKey(const ProcessSample& sample) const {
  std::string key = *sample.path;
  if (!options_.identifier) return key;
  // NUL cannot occur in a path, so the launch facts cannot run into it.
  // Two containers of one image run the same path and are still two groups.
  fmt::format_to(std::back_inserter(key), "{}{}{}{}{}{}{}{}{}{}{}{}{}", '\0', sample.uid, sample.kernelThread ? 'k' : '-',
                 sample.hasTerminal ? 't' : '-', sample.sessionService ? 's' : '-', '\0',
                 sample.appUnitID.value_or(""), '\0', sample.flatpakAppID.value_or(""), '\0', sample.name, '\0',
                 sample.containerID.value_or(""));
  return key;
}

std::shared_ptr<const AppGrouper::Descriptor> AppGrouper::lookup(const ProcessSample& sample) const {
  // Without a path there is no key worth keeping: kernel threads' names change all the time.
  if (!sample.path) return compute(sample);
  auto key = cacheKey(sample);
  uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    if (const auto found = cache_.find(key); found != cache_.end()) return found->second;
    generation = generation_;
  }
  auto computed = compute(sample);
  std::lock_guard lock(mutex_);
  if (generation != generation_) return computed;  // reloaded meanwhile: do not keep a stale answer
  // Another thread may have stored the same key meanwhile; keep the first.
  return cache_.try_emplace(std::move(key), std::move(computed)).first->second;
}

AppGrouper::Descriptor AppGrouper::descriptor(const ProcessSample& sample) const { return *lookup(sample); }

void AppGrouper::reload() {
  if (options_.identifier) options_.identifier->reload();
  std::lock_guard lock(mutex_);
  cache_.clear();
  ++generation_;
}

// MARK: grouping

std::vector<AppGroup> AppGrouper::group(std::vector<ProcessSample> samples) const {
  const size_t count = samples.size();
  std::vector<std::shared_ptr<const Descriptor>> own(count);
  std::unordered_map<int32_t, size_t> byPID;
  byPID.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    own[i] = lookup(samples[i]);
    byPID.emplace(samples[i].pid, i);
  }

  // Nearest ancestor that is an app; a chain cannot be longer than the tick without a cycle.
  const auto appAncestor = [&](size_t i) -> const Descriptor* {
    int32_t parent = samples[i].parentPID;
    for (size_t steps = 0; steps < count; ++steps) {
      const auto found = byPID.find(parent);
      if (found == byPID.end()) return nullptr;
      const size_t j = found->second;
      if (own[j]->kind == GroupKind::app) return own[j].get();
      if (samples[j].parentPID == parent) return nullptr;
      parent = samples[j].parentPID;
    }
    return nullptr;
  };

  std::vector<const Descriptor*> chosen(count);
  for (size_t i = 0; i < count; ++i) {
    chosen[i] = own[i].get();
    const auto& role = samples[i].helperRole;
    if (role && *role != HelperRole::main && own[i]->kind != GroupKind::app) {
      if (const auto* app = appAncestor(i)) chosen[i] = app;
    }
  }

  std::vector<AppGroup> groups;
  std::unordered_map<std::string_view, size_t> groupIndex;  // views into `own`, alive until return
  for (size_t i = 0; i < count; ++i) {
    const Descriptor& d = *chosen[i];
    const auto [slot, inserted] = groupIndex.try_emplace(d.id, groups.size());
    if (inserted) groups.emplace_back(d.id, d.name, d.kind, d.bundlePath, std::vector<ProcessSample>{});
    groups[slot->second].processes.push_back(std::move(samples[i]));
  }

  struct SortKey {
    uint64_t memory;
    double cpu;
  };
  std::vector<SortKey> keys;
  keys.reserve(groups.size());
  for (const auto& g : groups) keys.push_back({g.memoryBytes(), g.cpuPercent()});
  std::vector<size_t> order(groups.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    if (keys[a].memory != keys[b].memory) return keys[a].memory > keys[b].memory;
    if (keys[a].cpu != keys[b].cpu) return keys[a].cpu > keys[b].cpu;
    return groups[a].id < groups[b].id;
  });
  std::vector<AppGroup> sorted;
  sorted.reserve(groups.size());
  for (const size_t i : order) sorted.push_back(std::move(groups[i]));
  return sorted;
}

}  // namespace omnira
