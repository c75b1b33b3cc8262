#pragma once
// The "Worth a Look" list: the insights raised so far, newest first, and the ones the
// person pinned. Saved as "insights.json". Unpinned insights beyond `kept` fall off the
// end; a pinned one stays until it is unpinned or cleared.
//
// A plain value owned by the monitor store on the main thread. Loading a file that cannot
// be read is a Failure (the store logs it and starts empty); a single insight that cannot
// be decoded is skipped, so one bad entry does not cost the others.

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/Insight.h"

namespace omnira {

class WorthALook {
 public:
  static constexpr size_t kept = 200;

  struct Failure {
    std::string message;
  };

  const std::vector<Insight>& insights() const { return insights_; }
  const std::set<UUID>& pinned() const { return pinned_; }

  // Adds new insights in front, newest first. Returns whether the list changed.
  bool note(const std::vector<Insight>& fresh);
  bool togglePin(const UUID& id);  // returns whether the id was known
  bool isPinned(const UUID& id) const { return pinned_.contains(id); }
  // Removes every insight that is not pinned.
  void clear();

  nlohmann::ordered_json toJSON() const;
  static WorthALook fromJSON(const nlohmann::ordered_json& json, std::vector<std::string>* skipped = nullptr);
  // A missing file is an empty list.
  static Result<WorthALook, Failure> load(const std::filesystem::path& file);
  Result<void, Failure> save(const std::filesystem::path& file) const;

  friend bool operator==(const WorthALook&, const WorthALook&) = default;

 private:
  void trim();

  std::vector<Insight> insights_;
  std::set<UUID> pinned_;
};

}  // namespace omnira
