#pragma once

#include <optional>
#include <string_view>

namespace omnira {

enum class GroupKind { app, system, other };

inline std::string_view rawValue(GroupKind kind) {
  switch (kind) {
    case GroupKind::app: return "app";
    case GroupKind::system: return "system";
    case GroupKind::other: return "other";
  }
  return "other";
}

inline std::optional<GroupKind> groupKindFromRaw(std::string_view raw) {
  if (raw == "app") return GroupKind::app;
  if (raw == "system") return GroupKind::system;
  if (raw == "other") return GroupKind::other;
  return std::nullopt;
}

}  // namespace omnira
