#include "OmniraCore/history/StrainTracker.h"

namespace omnira {

bool StrainTracker::note(const std::set<StrainKind>& kinds, Date at) {
  for (StrainKind kind : kinds) {
    lastSeen_[kind] = at;
    began_.try_emplace(kind, at);
  }
  for (auto it = lastSeen_.begin(); it != lastSeen_.end();) {
    if (at - it->second > grace) {
      began_.erase(it->first);
      it = lastSeen_.erase(it);
    } else {
      ++it;
    }
  }
  std::map<StrainKind, Date> next;
  for (const auto& [kind, date] : began_)
    if (lastSeen_.contains(kind)) next.emplace(kind, date);
  if (next == since_) return false;
  since_ = std::move(next);
  return true;
}

}  // namespace omnira
