#pragma once
// What a helper process of a multi-process app does. Raw values are persisted and shown.
// The classifiers are pure functions of arguments and paths.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace omnira {

enum class HelperRole { main, renderer, extensionHost, gpu, network, other };

std::string_view rawValue(HelperRole role);
std::optional<HelperRole> helperRoleFromRaw(std::string_view raw);

namespace helper_role {

// Chromium-style "--type=" arguments.
std::optional<HelperRole> parse(const std::vector<std::string>& arguments);
// Gecko helpers: the last argument names the kind of child.
std::optional<HelperRole> parseGecko(const std::vector<std::string>& arguments);
bool isGeckoHelper(std::string_view path);
// WebKit helpers by executable path.
std::optional<HelperRole> webKitRole(std::string_view path);

}  // namespace helper_role
}  // namespace omnira
