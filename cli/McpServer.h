#pragma once
// `omnira mcp`: a Model Context Protocol server on standard input and output for coding
// agents. JSON-RPC 2.0, one message per line, UTF-8: initialize (the client's protocol
// version when it is one of ours, else our newest), ping, tools/list (the bridge's table;
// the quit tools only while "bridgeActionsEnabled" is on) and tools/call, which asks the
// running Omnira through its bridge socket and returns the answer as text (and as
// structured content for clients of 2025-06-18 or later). A refusal or a tool's error is
// a result with isError and the sentence; protocol mistakes get JSON-RPC's error codes.
//
// Nothing but protocol messages goes to `out`. Calls run on threads of their own, so a
// quit that waits a minute for the person does not hold up a ping; writes to `out` are
// serialised by one lock, the server's.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira::cli {

class McpServer {
 public:
  using json = nlohmann::ordered_json;
  // Asks the bridge; the seam tests use to answer without a running Omnira.
  using Ask = std::function<Result<json, BridgeSocket::Failure>(const json& request, std::chrono::seconds timeout)>;

  static const std::vector<std::string>& protocolVersions();  // newest first

  struct Options {
    std::string systemName = "Linux";
    std::function<bool()> actionsEnabled;  // read at each tools/list; empty: on
    Ask ask;
  };

  explicit McpServer(Options options);

  // Reads messages from `in` until it ends, answering on `out`; returns 0.
  int run(std::FILE* in, std::FILE* out);
  // The replies to one line (none for a notification). Public for tests.
  std::optional<json> handle(const std::string& line);

 private:
  std::optional<json> handleOne(const json& message);
  json call(const json& id, const json& params);
  json toolList() const;

  Options options_;
  const std::string& version() const { return protocolVersions()[version_]; }

  std::atomic<size_t> version_{0};  // negotiated: an index into protocolVersions(); calls read it on their threads
  std::mutex writeLock_;
};

}  // namespace omnira::cli
