#include "OmniraCore/sampling/HelperRole.h"

#include <algorithm>

namespace omnira {

std::string_view rawValue(HelperRole role) {
  switch (role) {
    case HelperRole::main: return "main";
    case HelperRole::renderer: return "renderer";
    case HelperRole::extensionHost: return "extensionHost";
    case HelperRole::gpu: return "gpu";
    case HelperRole::network: return "network";
    case HelperRole::other: return "other";
  }
  return "other";
}

std::optional<HelperRole> helperRoleFromRaw(std::string_view raw) {
  for (auto role : {HelperRole::main, HelperRole::renderer, HelperRole::extensionHost, HelperRole::gpu,
                    HelperRole::network, HelperRole::other}) {
    if (rawValue(role) == raw) return role;
  }
  return std::nullopt;
}

namespace helper_role {

namespace {

std::string_view basename(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

}  // namespace

std::optional<HelperRole> parse(const std::vector<std::string>& arguments) {
  constexpr std::string_view typePrefix = "--type=";
  constexpr std::string_view subTypePrefix = "--utility-sub-type=";
  std::optional<std::string_view> type, subType;
  for (const auto& argument : arguments) {
    const std::string_view arg = argument;
    if (arg == "--extension-process") return HelperRole::extensionHost;
    if (arg.starts_with(typePrefix)) type = arg.substr(typePrefix.size());
    if (arg.starts_with(subTypePrefix)) subType = arg.substr(subTypePrefix.size());
  }
  if (!type) return std::nullopt;
  if (*type == "renderer") return HelperRole::renderer;
  if (*type == "gpu-process") return HelperRole::gpu;
  if (*type == "utility" && subType) {
    if (subType->starts_with("network.mojom.")) return HelperRole::network;
    if (subType->starts_with("node.mojom.")) return HelperRole::extensionHost;
  }
  return HelperRole::other;
}

std::optional<HelperRole> parseGecko(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) return std::nullopt;
  const auto& last = arguments.back();
  if (last == "tab") return HelperRole::renderer;
  if (last == "gpu") return HelperRole::gpu;
  if (last == "socket") return HelperRole::network;
  return HelperRole::other;
}

bool isGeckoContentProcess(const std::vector<std::string>& arguments) {
  return std::find(arguments.begin(), arguments.end(), "-contentproc") != arguments.end();
}

std::optional<HelperRole> webKitRole(std::string_view path) {
  if (contains(path, "/com.apple.WebKit.")) {
    if (path.ends_with("com.apple.WebKit.WebContent")) return HelperRole::renderer;
    if (path.ends_with("com.apple.WebKit.Networking")) return HelperRole::network;
    if (path.ends_with("com.apple.WebKit.GPU")) return HelperRole::gpu;
    return HelperRole::other;
  }
  const auto name = basename(path);
  if (name == "WebKitWebProcess") return HelperRole::renderer;
  if (name == "WebKitNetworkProcess") return HelperRole::network;
  if (name == "WebKitGPUProcess") return HelperRole::gpu;
  // Older and rarer helpers of the same family (WebKitPluginProcess, WebKitStorageProcess).
  if (name.starts_with("WebKit") && name.ends_with("Process")) return HelperRole::other;
  return std::nullopt;
}

std::optional<HelperRole> classify(const std::optional<std::string>& path, const std::vector<std::string>& arguments) {
  if (isGeckoContentProcess(arguments)) return parseGecko(arguments);
  if (path) {
    if (auto role = webKitRole(*path)) return role;
  }
  return parse(arguments);
}

}  // namespace helper_role

}  // namespace omnira
