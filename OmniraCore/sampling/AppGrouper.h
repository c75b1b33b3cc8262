#pragma once
// Folds one tick's process samples into app groups: one per app, one for the
// operating system, one per command-line tool. Group ids are stable across launches,
// updates and versioned install folders, because the history keys its records by them.
//
// Order for one process: the platform's identifier (AppIdentifier, when given) first;
// then the path rules (system folders, "exec:" ids with versions folded);
// a process without a path gets "name:" + its name.
//
// Ownership and threads: one grouper lives as long as the sampling; group(),
// descriptor() and reload() may be called from any thread at once. The descriptor
// cache is behind one mutex that is never held while a descriptor is computed.
// Nothing here fails: an unknown process always gets a descriptor.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/GroupKind.h"
#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

class AppIdentifier;

class AppGrouper {
 public:
  // What a process is grouped by.
  struct Descriptor {
    std::string id;
    std::string name;
    GroupKind kind = GroupKind::other;
    std::optional<std::string> bundlePath;
    friend bool operator==(const Descriptor&, const Descriptor&) = default;
  };

  struct Options {
    // Executables under these belong to the system group.
    std::vector<std::string> systemPathPrefixes = macOSSystemPathPrefixes();
    // Rewrites install folders that change with every update (package revisions,
    // commit folders) before canonicalID; empty: none.
    std::function<std::string(std::string_view path)> foldInstallFolders;
    // Consulted before the path rules; null: the path rules alone.
    std::shared_ptr<AppIdentifier> identifier;
  };

  static constexpr std::string_view systemGroupID = "system";

  // `systemName` names the system group ("macOS", or the distribution's name).
  // This form applies the path rules alone, with the macOS system folders.
  explicit AppGrouper(std::string systemName);
  AppGrouper(std::string systemName, Options options);
  ~AppGrouper();
  AppGrouper(const AppGrouper&) = delete;
  AppGrouper& operator=(const AppGrouper&) = delete;

  // Groups sorted by memory, largest first (ties: more CPU first, then by id).
  // A helper (a helper role other than main) whose own descriptor is not an app joins
  // the nearest ancestor, through the samples' parent pids, that is an app; without
  // one it keeps its own group.
  std::vector<AppGroup> group(std::vector<ProcessSample> samples) const;

  // Served from a cache keyed by the executable path and the launch facts the
  // identifier reads (unit, sandbox, terminal, uid, name); a process without a path is
  // decided afresh (cheaply) each time.
  Descriptor descriptor(const ProcessSample& sample) const;
  // The path rules alone (no identifier, no cache).
  Descriptor descriptorForPath(std::string_view path) const;
  Descriptor systemDescriptor() const;

  // Rescans what the identifier knows (installed apps) and empties the cache.
  void reload();

  // Folds an id into its stable form: version folders (and a build hash right after
  // one) to "*".
  static std::string canonicalID(std::string_view id);
  // "1.2", "v10.4.1"; not "1", "1.", "v".
  static bool isVersion(std::string_view piece);
  // 7 to 40 of [0-9a-f], at least one digit.
  static bool isBuildHash(std::string_view piece);
  static std::vector<std::string> macOSSystemPathPrefixes();

 private:
  std::shared_ptr<const Descriptor> lookup(const ProcessSample& sample) const;
  std::shared_ptr<const Descriptor> compute(const ProcessSample& sample) const;
  std::shared_ptr<const Descriptor> computeFromBytes(const ProcessSample& sample) const;
  std::string cacheKey(const ProcessSample& sample) const;

  const std::string systemName_;
  const Options options_;
  const std::shared_ptr<const Descriptor> system_;

  mutable std::mutex mutex_;  // guards cache_ and generation_
  mutable std::unordered_map<std::string, std::shared_ptr<const Descriptor>> cache_;
  uint64_t generation_ = 0;  // bumped by reload(); a descriptor computed before is not stored
};

}  // namespace omnira
