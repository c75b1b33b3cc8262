// The MCP server's protocol: version negotiation, the tool list, calls answered through
// the bridge (here a stand-in that records what it was asked), and the JSON-RPC errors.

#include "cli/McpServer.h"

#include <gtest/gtest.h>

#include <atomic>

namespace omnira::cli {
namespace {

using json = nlohmann::ordered_json;

struct Fixture {
  std::atomic<bool> actions{true};
  json asked;
  std::optional<Result<json, BridgeSocket::Failure>> answer;
  McpServer server{{"Debian GNU/Linux", [this] { return actions.load(); },
                    [this](const json& request, std::chrono::seconds) -> Result<json, BridgeSocket::Failure> {
                      asked = request;
                      return answer ? *answer : Result<json, BridgeSocket::Failure>(json{{"ok", true}, {"result", {{"apps", json::array()}}}});
                    }}};
  json send(const json& message) { return server.handle(message.dump()).value_or(json("no reply")); }
  json initialize(const char* version) {
    return send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"},
                 {"params", {{"protocolVersion", version}, {"capabilities", json::object()},
                             {"clientInfo", {{"name", "t"}, {"version", "1"}}}}}});
  }
  json call(const char* tool, json arguments = json::object(), int id = 7) {
    return send({{"jsonrpc", "2.0"}, {"id", id}, {"method", "tools/call"}, {"params", {{"name", tool}, {"arguments", arguments}}}});
  }
};

TEST(McpServer, NegotiatesAndListsTheTable) {
  Fixture f;
  const auto init = f.initialize("2025-03-26");
  EXPECT_EQ(init["result"]["protocolVersion"], "2025-03-26");
  EXPECT_EQ(init["result"]["capabilities"], (json{{"tools", {{"listChanged", false}}}}));
  EXPECT_EQ(f.initialize("1999-01-01")["result"]["protocolVersion"], "2025-11-25");  // ours, the newest

  EXPECT_EQ(f.send({{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}}), "no reply");
  EXPECT_EQ(f.send({{"jsonrpc", "2.0"}, {"id", "p"}, {"method", "ping"}}), (json{{"jsonrpc", "2.0"}, {"id", "p"}, {"result", json::object()}}));

  auto tools = f.send({{"jsonrpc", "2.0"}, {"id", 2}, {"method", "tools/list"}})["result"]["tools"];
  ASSERT_EQ(tools.size(), 14u);
  EXPECT_EQ(tools[11]["name"], "quit");
  EXPECT_EQ(tools[11]["annotations"]["readOnlyHint"], false);
  // With quitting switched off the quit tools are not offered at all.
  f.actions = false;
  tools = f.send({{"jsonrpc", "2.0"}, {"id", 3}, {"method", "tools/list"}})["result"]["tools"];
  EXPECT_EQ(tools.size(), 11u);
}

TEST(McpServer, CallsGoToTheBridgeAndComeBackAsContent) {
  Fixture f;
  f.initialize("2025-06-18");
  const auto ok = f.call("top_apps", {{"by", "cpu"}});
  EXPECT_EQ(f.asked, (json{{"tool", "top_apps"}, {"arguments", {{"by", "cpu"}}}}));
  EXPECT_EQ(ok["result"]["isError"], false);
  EXPECT_EQ(ok["result"]["structuredContent"], (json{{"apps", json::array()}}));
  // A client of an older version gets no structured content.
  f.initialize("2025-03-26");
  EXPECT_FALSE(f.call("top_apps")["result"].contains("structuredContent"));

  // Omnira's refusal, and Omnira not there, are results the agent reads, not protocol errors.
  f.answer = Result<json, BridgeSocket::Failure>(json{{"ok", false}, {"error", "Give the app's name."}});
  const auto refused = f.call("app_details");
  EXPECT_EQ(refused["result"]["isError"], true);
  EXPECT_EQ(refused["result"]["content"][0]["text"], "Give the app's name.");
  f.answer = Result<json, BridgeSocket::Failure>(fail(BridgeSocket::Failure{}));
  EXPECT_NE(f.call("ports")["result"]["content"][0]["text"].get<std::string>().find("omnira settings set bridgeEnabled true"),
            std::string::npos);
  f.answer = Result<json, BridgeSocket::Failure>(fail(BridgeSocket::Failure{"Omnira did not answer in time."}));
  EXPECT_EQ(f.call("ports")["result"]["content"][0]["text"], "Omnira did not answer in time.");
  // No arguments at all is an empty object.
  f.send({{"jsonrpc", "2.0"}, {"id", 9}, {"method", "tools/call"}, {"params", {{"name", "whats_wrong"}}}});
  EXPECT_EQ(f.asked["arguments"], json::object());
}

TEST(McpServer, ProtocolMistakesGetJSONRPCErrors) {
  Fixture f;
  const auto code = [](const json& reply) { return reply["error"]["code"].get<int>(); };
  EXPECT_EQ(code(json::parse(f.server.handle("{not json").value().dump())), -32700);
  EXPECT_EQ(code(f.send({{"id", 1}, {"method", "ping"}})), -32600);  // no "jsonrpc"
  EXPECT_EQ(code(f.send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "resources/list"}})), -32601);
  EXPECT_EQ(code(f.call("rm_rf")), -32602);
  EXPECT_EQ(code(f.send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", {{"name", "ports"}, {"arguments", "3000"}}}})),
            -32602);
  // A batch is answered as one, its notifications left out.
  const auto batch = f.send(json::array({{{"jsonrpc", "2.0"}, {"id", 1}, {"method", "ping"}},
                                         {{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}}}));
  ASSERT_TRUE(batch.is_array());
  EXPECT_EQ(batch.size(), 1u);
  EXPECT_EQ(f.server.handle("[]").value()["error"]["code"], -32600);
}

}  // namespace
}  // namespace omnira::cli
