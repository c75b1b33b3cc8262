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
// On Linux a Gecko child runs the browser's own executable with "-contentproc".
bool isGeckoContentProcess(const std::vector<std::string>& arguments);
// WebKit helpers by executable path: the "com.apple.WebKit.*" helper bundles, or on
// Linux the WebKitWebProcess, WebKitNetworkProcess and WebKitGPUProcess executables.
std::optional<HelperRole> webKitRole(std::string_view path);

// The classifiers above in the order the process sampler applies them: a Gecko helper
// by the Gecko rule, else a WebKit helper by its path, else the Chromium arguments.
std::optional<HelperRole> classify(const std::optional<std::string>& path,
                                   const std::vector<std::string>& arguments);

}  // namespace helper_role
}  // namespace omnira
