#include "OmniraCore/platform/linux/ListeningSockets.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

constexpr std::string_view kListen = "0A";

std::optional<uint16_t> hexPort(std::string_view address) {
  const auto colon = address.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto digits = address.substr(colon + 1);
  uint16_t port = 0;
  auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), port, 16);
  if (ec != std::errc() || ptr != digits.data() + digits.size() || digits.empty()) return std::nullopt;
  return port;
}

}  // namespace

Result<std::vector<ListeningSocket>, ParseFailure> parseListeningSockets(std::string_view text) {
  std::vector<ListeningSocket> sockets;
  bool header = true;
  std::string_view bad;
  forEachLine(text, [&](std::string_view line) {
    if (header) {
      header = false;
      return;
    }
    if (!bad.empty() || trim(line).empty()) return;
    const auto fields = splitFields(line);
    if (fields.size() < 10) {
      bad = line;
      return;
    }
    if (fields[3] != kListen) return;
    const auto port = hexPort(fields[1]);
    const auto uid = parseNumber<uint32_t>(fields[7]);
    const auto inode = parseNumber<uint64_t>(fields[9]);
    if (!port || !uid || !inode) {
      bad = line;
      return;
    }
    if (*port == 0 || *inode == 0) return;
    sockets.push_back({*inode, *port, *uid});
  });
  if (!bad.empty()) return fail(ParseFailure{fmt::format("net/tcp: cannot read \"{}\"", trim(bad))});
  return sockets;
}

std::optional<uint64_t> socketInodeOfLink(std::string_view linkTarget) {
  constexpr std::string_view prefix = "socket:[";
  if (!linkTarget.starts_with(prefix) || !linkTarget.ends_with(']')) return std::nullopt;
  return parseNumber<uint64_t>(linkTarget.substr(prefix.size(), linkTarget.size() - prefix.size() - 1));
}

}  // namespace omnira::platform
