#pragma once
// The "Worth a Look" list: the insights raised so far, newest first, the ones the person
// pinned, and the parts of the computer under strain with since when. Saved as
// "insights.json". Unpinned insights beyond `kept` fall off the end; a pinned one stays
// until it is unpinned, dismissed or cleared.
//
// Two programs change the file: the running application (new insights, strain) and
// `omnira insights` (pins and dismissals, with or without the application running). Both
// change it only through update(), which holds a lock beside the file from the read to
// the rename, so neither writes back a list that misses the other's change.
//
// A plain value. Loading a file that cannot be read is a Failure, and the file is not saved
// over until it can be read; a file that is no list of insights is moved aside; a single
// insight that cannot be decoded is skipped, so one bad entry does not cost the others, and
// the file is kept aside before the next save (see SavedFile.h).

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/StrainKind.h"

namespace omnira {

using StrainSince = std::map<StrainKind, Date>;

class WorthALook {
 public:
  static constexpr size_t kept = 200;

  struct Failure {
    std::string message;  // a sentence naming the file
    bool leftAlone = false;  // the file could not be read; it is not saved over
  };

  const std::vector<Insight>& insights() const { return insights_; }
  const std::set<UUID>& pinned() const { return pinned_; }
  const StrainSince& strain() const { return strain_; }

  // Adds new insights in front, newest first. Returns whether the list changed.
  bool note(const std::vector<Insight>& fresh);
  bool togglePin(const UUID& id);  // returns whether the id was known
  bool pin(const UUID& id, bool pinned);  // returns whether the id was known
  bool isPinned(const UUID& id) const { return pinned_.contains(id); }
  bool dismiss(const UUID& id);  // pinned or not; returns whether the id was known
  // Removes every insight that is not pinned.
  void clear();
  void setStrain(StrainSince strain) { strain_ = std::move(strain); }

  // The insights whose id is `text` or begins with it (any case, dashes optional), so a
  // person can type the first few characters that a listing shows.
  std::vector<UUID> matching(std::string_view text) const;

  nlohmann::ordered_json toJSON() const;
  static WorthALook fromJSON(const nlohmann::ordered_json& json, std::vector<std::string>* skipped = nullptr);
  // A missing file is an empty list.
  static Result<WorthALook, Failure> load(const std::filesystem::path& file);
  Result<void, Failure> save(const std::filesystem::path& file) const;

  // Reads the file, applies `change` and writes the result, all under the lock. A file
  // that cannot be read or decoded is a Failure, unless `fallback` is given: then the change
  // applies to the fallback, which replaces a file moved aside but is not written over one
  // that could not be read. Returns the list as changed.
  static Result<WorthALook, Failure> update(const std::filesystem::path& file,
                                            const std::function<void(WorthALook&)>& change,
                                            const WorthALook* fallback = nullptr);

  // "Strain: memory since 14:02, cpu since 09:15" in local time (with the day when it is
  // not today's); empty without strain.
  static std::string strainLine(const StrainSince& strain, Date now);

  friend bool operator==(const WorthALook&, const WorthALook&) = default;

 private:
  void trim();

  std::vector<Insight> insights_;
  std::set<UUID> pinned_;
  StrainSince strain_;
};

}  // namespace omnira
