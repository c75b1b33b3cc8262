// The agent bridge's requests as they come off the socket: the line reader over a real
// socket pair, then the request decoded as the bridge host does (a JSON object with a
// "tool" and its "arguments") and its metric and period arguments looked up.

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/Bridge.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;

namespace {

// The line the reader gives for bytes sent whole and then closed.
std::optional<std::string> lineOf(std::string_view bytes) {
  int pair[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) __builtin_trap();
  // Stays within the socket's buffer, so the write cannot block with no reader yet.
  bytes = bytes.substr(0, 65536);
  if (!BridgeSocket::write(pair[1], bytes)) __builtin_trap();
  ::shutdown(pair[1], SHUT_WR);
  auto line = BridgeSocket::readLine(pair[0]);
  ::close(pair[0]);
  ::close(pair[1]);
  const auto newline = bytes.find('\n');
  // A line is what came before the first newline; without one there is none.
  if (line.has_value() != (newline != std::string_view::npos)) __builtin_trap();
  if (line && *line != bytes.substr(0, newline)) __builtin_trap();
  return line;
}

void decode(const nlohmann::ordered_json& request) {
  if (!request.is_object()) return;
  const auto tool = request.contains("tool") && request["tool"].is_string() ? request["tool"].get<std::string>() : "";
  fuzz::keep(Bridge::isTool(tool));
  fuzz::keep(Bridge::isAction(tool));
  if (!request.contains("arguments") || !request["arguments"].is_object()) return;
  for (const auto& [key, value] : request["arguments"].items()) {
    if (!value.is_string()) continue;
    const auto& raw = value.get_ref<const std::string&>();
    if (auto metric = Bridge::metric(raw); metric && Bridge::rawValue(*metric) != raw) __builtin_trap();
    if (auto period = Bridge::period(raw)) {
      if (Bridge::rawValue(*period) != raw) __builtin_trap();
      fuzz::keep(Bridge::seconds(*period));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 2);
  if (input.selector == 0) {
    // Off the socket, as the listener reads it.
    if (auto line = lineOf(input.text))
      decode(nlohmann::ordered_json::parse(*line, nullptr, /*allow_exceptions=*/false));
  } else {
    decode(nlohmann::ordered_json::parse(input.text, nullptr, /*allow_exceptions=*/false));
  }
  return 0;
}
