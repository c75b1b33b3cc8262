#include "cli/McpServer.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

#include "OmniraCore/bridge/Bridge.h"
#include "OmniraCore/foundation/JSONText.h"

namespace omnira::cli {

namespace {

using json = McpServer::json;

constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;

// A quit waits up to a minute for the person; every other answer comes at once.
constexpr std::chrono::seconds kAskTimeout{15};
constexpr std::chrono::seconds kQuitTimeout{75};

const char* kNotRunning =
    "Omnira is not running, or its bridge is off. The person can start it with `omnira run` and let assistants ask "
    "it with `omnira settings set bridgeEnabled true`.";

json error(const json& id, int code, std::string message) {
  return json{{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", std::move(message)}}}};
}
json result(const json& id, json value) { return json{{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(value)}}; }
json textResult(const std::string& text, bool isError) {
  return json{{"content", json::array({{{"type", "text"}, {"text", text}}})}, {"isError", isError}};
}

bool validID(const json& id) { return id.is_string() || id.is_number_integer() || id.is_number_unsigned(); }

}  // namespace

const std::vector<std::string>& McpServer::protocolVersions() {
  static const std::vector<std::string> versions = {"2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05"};
  return versions;
}

McpServer::McpServer(Options options) : options_(std::move(options)) {}

json McpServer::toolList() const {
  auto tools = Bridge::tools(options_.systemName);
  if (!options_.actionsEnabled || options_.actionsEnabled()) {
    tools.push_back(Bridge::request(options_.systemName));
    for (auto& action : Bridge::actions(options_.systemName)) tools.push_back(std::move(action));
  }
  const bool annotated = version() >= "2025-03-26";
  json list = json::array();
  for (const auto& tool : tools) {
    json one{{"name", tool.name}, {"description", tool.description}, {"inputSchema", tool.schema}};
    if (annotated) {
      const bool reads = !Bridge::isAction(tool.name);
      one["annotations"] = {{"readOnlyHint", reads}, {"destructiveHint", !reads}, {"openWorldHint", false}};
    }
    list.push_back(std::move(one));
  }
  return json{{"tools", std::move(list)}};
}

json McpServer::call(const json& id, const json& params) {
  if (!params.is_object() || !params.contains("name") || !params["name"].is_string())
    return error(id, kInvalidParams, "tools/call needs params.name, the tool's name.");
  const std::string name = params["name"];
  if (!Bridge::isTool(name)) return error(id, kInvalidParams, "Unknown tool: " + name);
  json arguments = json::object();
  if (params.contains("arguments") && !params["arguments"].is_null()) {
    if (!params["arguments"].is_object()) return error(id, kInvalidParams, "params.arguments must be an object.");
    arguments = params["arguments"];
  }
  const auto reply = options_.ask(json{{"tool", name}, {"arguments", arguments}},
                                  Bridge::isAction(name) ? kQuitTimeout : kAskTimeout);
  if (!reply) return result(id, textResult(reply.error().message.value_or(kNotRunning), true));
  const json& answer = *reply;
  if (!answer.value("ok", false)) {
    const auto sentence = answer.contains("error") && answer["error"].is_string() ? answer["error"].get<std::string>()
                                                                                  : std::string("Omnira refused.");
    return result(id, textResult(sentence, true));
  }
  const json& value = answer.contains("result") ? answer["result"] : json();
  json out = textResult(jsonText(value), false);
  if (version() >= "2025-06-18" && value.is_object()) out["structuredContent"] = value;
  return result(id, std::move(out));
}

std::optional<json> McpServer::handleOne(const json& message) {
  if (!message.is_object()) return error(nullptr, kInvalidRequest, "A message must be a JSON object.");
  const bool hasID = message.contains("id");
  const json id = hasID ? message["id"] : json();
  if (message.value("jsonrpc", "") != "2.0" || !message.contains("method") || !message["method"].is_string() ||
      (hasID && !validID(id)))
    return hasID || !message.contains("method") ? std::optional(error(validID(id) ? id : json(), kInvalidRequest,
                                                                      "Not a JSON-RPC 2.0 request."))
                                                : std::nullopt;
  const std::string method = message["method"];
  const json params = message.contains("params") ? message["params"] : json::object();
  if (!hasID) return std::nullopt;  // notifications: initialized, cancelled, … need no answer

  if (method == "initialize") {
    const auto asked = params.is_object() && params.contains("protocolVersion") && params["protocolVersion"].is_string()
                           ? params["protocolVersion"].get<std::string>()
                           : std::string();
    const auto& versions = protocolVersions();
    const auto known = std::find(versions.begin(), versions.end(), asked);
    version_ = known == versions.end() ? 0 : static_cast<size_t>(known - versions.begin());
    json info{{"name", "omnira"}, {"version", OMNIRA_VERSION}};
    if (version() >= "2025-06-18") info["title"] = "Omnira";
    return result(id, json{{"protocolVersion", version()},
                           {"capabilities", {{"tools", {{"listChanged", false}}}}},
                           {"serverInfo", std::move(info)},
                           {"instructions",
                            "Omnira is the activity monitor running on this computer. Ask it what uses the CPU, "
                            "memory, disk or network, what runs in which project folder and on which port, and "
                            "whether something can be quit; start with system_status or whats_wrong."}});
  }
  if (method == "ping") return result(id, json::object());
  if (method == "tools/list") return result(id, toolList());
  if (method == "tools/call") return call(id, params);
  return error(id, kMethodNotFound, "Omnira has no method " + method + ".");
}

std::optional<json> McpServer::handle(const std::string& line) {
  const auto message = json::parse(line, nullptr, /*allow_exceptions=*/false);
  if (message.is_discarded()) return error(nullptr, kParseError, "That line is not JSON.");
  if (!message.is_array()) return handleOne(message);
  if (message.empty()) return error(nullptr, kInvalidRequest, "An empty batch.");
  json replies = json::array();
  for (const auto& one : message)
    if (auto reply = handleOne(one)) replies.push_back(std::move(*reply));
  if (replies.empty()) return std::nullopt;
  return replies;
}

int McpServer::run(std::FILE* in, std::FILE* out) {
  const auto write = [&](const json& reply) {
    const std::string text = jsonText(reply) + "\n";
    std::lock_guard guard(writeLock_);
    std::fwrite(text.data(), 1, text.size(), out);
    std::fflush(out);
  };
  struct Call {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };
  std::vector<Call> calls;
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t length;
  while ((length = ::getline(&buffer, &capacity, in)) >= 0) {
    std::string line(buffer, static_cast<size_t>(length));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    // A tool call may wait on Omnira, or on the person: it answers from a thread of its own.
    const auto probe = json::parse(line, nullptr, false);
    if (probe.is_object() && probe.value("method", "") == "tools/call" && probe.contains("id")) {
      auto done = std::make_shared<std::atomic<bool>>(false);
      calls.push_back({std::thread([this, line = std::move(line), write, done] {
                         if (auto reply = handle(line)) write(*reply);
                         *done = true;
                       }),
                       done});
      std::erase_if(calls, [](Call& c) {
        if (!*c.done) return false;
        c.thread.join();
        return true;
      });
      continue;
    }
    if (auto reply = handle(line)) write(*reply);
  }
  std::free(buffer);
  for (auto& c : calls) c.thread.join();
  return 0;
}

}  // namespace omnira::cli
