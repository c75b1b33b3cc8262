#include "OmniraCore/platform/linux/Cmdline.h"

namespace omnira::platform {

namespace {

std::vector<std::string> splitAt(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (true) {
    const auto at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) break;
    text.remove_prefix(at + 1);
  }
  return parts;
}

}  // namespace

std::vector<std::string> parseCmdline(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  if (text.empty()) return {};
  auto arguments = splitAt(text, '\0');
  if (arguments.size() == 1 && arguments[0].find(" -") != std::string::npos) {
    std::vector<std::string> words;
    for (auto& word : splitAt(arguments[0], ' ')) {
      if (!word.empty()) words.push_back(std::move(word));
    }
    return words;
  }
  return arguments;
}

}  // namespace omnira::platform
