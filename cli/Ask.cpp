#include "cli/Ask.h"

#include <fmt/format.h>

#include "OmniraCore/bridge/Bridge.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"

namespace omnira::cli {

int runAsk(const std::string& tool, const std::optional<std::string>& arguments, const AppPaths& paths,
           std::FILE* out, std::FILE* err) {
  auto parsed = nlohmann::ordered_json::object();
  if (arguments) {
    parsed = nlohmann::ordered_json::parse(*arguments, nullptr, /*allow_exceptions=*/false);
    if (!parsed.is_object()) {
      fmt::print(err, "omnira: the arguments must be a JSON object, like '{{\"pid\": 1234}}'.\n");
      return 2;
    }
  }
  // A quit waits up to a minute for the person's click.
  const auto timeout = Bridge::isAction(tool) ? std::chrono::seconds(75) : std::chrono::seconds(15);
  const auto reply = BridgeSocket::ask({{"tool", tool}, {"arguments", parsed}}, BridgeSocket::path(paths).string(), timeout);
  if (!reply) {
    fmt::print(err, "{}\n",
               terminalText(reply.error().message.value_or(
                   "Omnira is not running, or its bridge is off. Start it with `omnira run`, and let agents ask it "
                   "with `omnira settings set bridgeEnabled true`.")));
    return 1;
  }
  if (!reply->value("ok", false)) {
    const auto& sentence = reply->contains("error") ? (*reply)["error"] : nlohmann::ordered_json("Omnira refused.");
    fmt::print(err, "{}\n", terminalText(sentence.is_string() ? sentence.get<std::string>() : jsonText(sentence)));
    return 1;
  }
  fmt::print(out, "{}\n", jsonText(reply->contains("result") ? (*reply)["result"] : nlohmann::ordered_json(), 2));
  return 0;
}

}  // namespace omnira::cli
