#include "OmniraCore/usage/UsageLogins.h"

#include <algorithm>
#include <optional>
#include <string>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

std::optional<std::filesystem::path> home(const AppPaths::Environment& environment) {
  auto value = environment("HOME");
  if (!value || value->empty() || (*value)[0] != '/') return std::nullopt;
  return std::filesystem::path(*value);
}

// A comma list of folders; "~" stands for HOME, relative folders are left out.
std::vector<std::filesystem::path> folderList(std::string_view list, const AppPaths::Environment& environment) {
  std::vector<std::filesystem::path> folders;
  while (true) {
    const size_t comma = list.find(',');
    const std::string_view item = trim(list.substr(0, comma));
    if (item == "~" || item.starts_with("~/")) {
      if (auto base = home(environment)) folders.push_back(item.size() <= 2 ? *base : *base / item.substr(2));
    } else if (item.starts_with('/')) {
      folders.emplace_back(item);
    }
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return folders;
}

void appendUnique(std::vector<std::filesystem::path>& folders, std::filesystem::path folder) {
  folder = folder.lexically_normal();
  if (!folder.has_filename() && folder != folder.root_path()) folder = folder.parent_path();
  if (std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(std::move(folder));
}

std::vector<std::filesystem::path> unique(const std::vector<std::filesystem::path>& folders) {
  std::vector<std::filesystem::path> result;
  for (const auto& folder : folders) appendUnique(result, folder);
  return result;
}

}  // namespace

std::vector<std::filesystem::path> UsageLogins::claudeHomes(const AppPaths::Environment& environment) {
  if (auto configured = environment("CLAUDE_CONFIG_DIR"); configured && !trim(*configured).empty())
    return unique(folderList(*configured, environment));
  std::vector<std::filesystem::path> homes;
  auto base = home(environment);
  if (base) appendUnique(homes, *base / ".claude");
  auto config = environment("XDG_CONFIG_HOME");
  if (config && !config->empty() && (*config)[0] == '/')
    appendUnique(homes, std::filesystem::path(*config) / "claude");
  else if (base)
    appendUnique(homes, *base / ".config" / "claude");
  return homes;
}

std::vector<std::filesystem::path> UsageLogins::codexHomes(const AppPaths::Environment& environment) {
  if (auto configured = environment("CODEX_HOME"); configured && !trim(*configured).empty())
    return unique(folderList(*configured, environment));
  std::vector<std::filesystem::path> homes;
  if (auto base = home(environment)) homes.push_back(*base / ".codex");
  return homes;
}

}  // namespace omnira
