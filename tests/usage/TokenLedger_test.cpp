#include "OmniraCore/usage/TokenLedger.h"

#include <gtest/gtest.h>

#include "OmniraCore/usage/TokenLogs.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

using namespace usage_testing;

struct TokenLedgerJSON : LogFolder {};

TEST_F(TokenLedgerJSON, RoundTripsAndRefusesBrokenEntries) {
  TokenLedger empty;
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(empty.toJSON(), (nlohmann::json{{"files", nlohmann::json::object()}}));

  append(project("p") / "s.jsonl", read(fixtures / "claude/streamed.jsonl"));
  append(codexHome() / "sessions" / "r.jsonl", read(fixtures / "codex/rollout-2025-03-14T11-00-00-basic.jsonl"));
  TokenLedger claude, codex;
  const Date longAgo = dateFromSecondsSinceEpoch(0);
  TokenLogs::update(claude, UsageTool::claude, {claudeHome()}, longAgo, DayCalendar::fixed(std::chrono::seconds(0)));
  TokenLogs::update(codex, UsageTool::codex, {codexHome()}, longAgo, DayCalendar::fixed(std::chrono::seconds(0)));
  EXPECT_FALSE(claude.isEmpty());

  for (const TokenLedger* ledger : {&claude, &codex}) {
    auto json = nlohmann::json::parse(ledger->toJSON().dump());
    EXPECT_EQ(TokenLedger::fromJSON(json).value(), *ledger);
  }
  auto json = claude.toJSON();
  auto& file = json["files"][(project("p") / "s.jsonl").string()];
  EXPECT_EQ(file["counted"]["msg_01AAA:req_011AAA"],
            (nlohmann::json{"2025-03-14", "claude-sonnet-4-5-20250929", 3, 380, 20000, 1000}));
  EXPECT_EQ(file["days"]["2025-03-14"]["claude-opus-4-1-20250805"],
            (nlohmann::json{{"input", 5}, {"output", 42}, {"cacheRead", 21000}, {"cacheWrite", 350}}));
  EXPECT_FALSE(file.contains("model"));
  EXPECT_EQ(codex.toJSON()["files"][(codexHome() / "sessions" / "r.jsonl").string()]["model"], "gpt-5-codex");

  const auto broken = [&](auto change) {
    auto copy = json;
    change(copy["files"][(project("p") / "s.jsonl").string()]);
    auto decoded = TokenLedger::fromJSON(copy);
    return decoded.ok() ? std::string() : decoded.error().message;
  };
  EXPECT_NE(broken([](auto& f) { f["counted"]["k"] = nlohmann::json::array({"2025-03-14", 3}); }).find("k"),
            std::string::npos);
  EXPECT_NE(broken([](auto& f) { f["offset"] = f["size"].template get<uint64_t>() + 1; }).find("offset"),
            std::string::npos);
  EXPECT_NE(broken([](auto& f) { f["size"] = -1; }).find("size"), std::string::npos);
  EXPECT_NE(broken([](auto& f) { f["days"]["2025-03-14"]["m"] = {{"input", 1.5}}; }).find("input"),
            std::string::npos);
  EXPECT_NE(broken([](auto& f) { f.erase("lastTotal"); }).find("lastTotal"), std::string::npos);
  EXPECT_FALSE(TokenLedger::fromJSON({{"files", nlohmann::json::array()}}).ok());
  EXPECT_FALSE(SessionLedger::fromJSON({{"files", nlohmann::json::object()}}).ok());  // no "found"
}

}  // namespace
}  // namespace omnira
