#include "OmniraCore/usage/TokenLedger.h"

#include <gtest/gtest.h>

#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "tests/usage/UsageLogFiles.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using namespace usage_testing;

struct TokenLedgerJSON : LogFolder {};

TEST_F(TokenLedgerJSON, RoundTripsAndRefusesBrokenEntries) {
  EXPECT_EQ(TokenLedger().toJSON(), (nlohmann::json{{"files", nlohmann::json::object()}}));
  append(project("p") / "s.jsonl", read(fixtures / "claude/streamed.jsonl"));
  append(codexHome() / "sessions" / "r.jsonl", read(fixtures / "codex/rollout-2025-03-14T11-00-00-basic.jsonl"));
  TokenLedger claude, codex;
  const Date longAgo = dateFromSecondsSinceEpoch(0);
  TokenLogs::update(claude, UsageTool::claude, {claudeHome()}, longAgo, DayCalendar::fixed(std::chrono::seconds(0)));
  TokenLogs::update(codex, UsageTool::codex, {codexHome()}, longAgo, DayCalendar::fixed(std::chrono::seconds(0)));

  for (const TokenLedger* ledger : {&claude, &codex}) {
    auto json = nlohmann::json::parse(ledger->toJSON().dump());
    EXPECT_EQ(TokenLedger::fromJSON(json).value(), *ledger);
  }
  auto json = claude.toJSON();
  auto& file = json["files"][(project("p") / "s.jsonl").string()];
  EXPECT_EQ(file["counted"]["msg_01AAA:req_011AAA"],
            (nlohmann::json{"2025-03-14", "claude-sonnet-4-5-20250929", 3, 380, 20000, 1000}));

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
  EXPECT_NE(broken([](auto& f) { f["days"]["2025-03-14"]["m"] = {{"input", 1.5}}; }).find("input"),
            std::string::npos);
  EXPECT_FALSE(TokenLedger::fromJSON({{"files", nlohmann::json::array()}}).ok());
}

// File names are bytes: a Latin-1 name, and a reply whose model and ids hold bytes that are
// not UTF-8, go through a real save and load of the cache and are neither read again nor
// counted twice.
TEST_F(TokenLedgerJSON, KeepsANameThatIsNotUTF8ThroughTheCache) {
  const DayCalendar utc = DayCalendar::fixed(std::chrono::seconds(0));
  const Date longAgo = dateFromSecondsSinceEpoch(0);
  const auto file = project("-home-dev-caf\xe9") / "caf\xe9 100%.jsonl";
  std::string line = assistantLine("MSG", "REQ", "MODEL", {1, 2, 3, 4}, "2025-03-14T10:00:00Z");
  line.replace(line.find("MSG"), 3, "msg_\xe9\xff");
  line.replace(line.find("REQ"), 3, "req_\xe9");
  line.replace(line.find("MODEL"), 5, "claude-caf\xe9-4");
  append(file, line + line);
  TokenLedger ledger;
  TokenLogs::update(ledger, UsageTool::claude, {claudeHome()}, longAgo, utc);
  ASSERT_TRUE(ledger.files().count(file.string()));
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{1, 2, 3, 4}));
  EXPECT_EQ(ledger.byModel().at(0).first, "claude-caf\xEF\xBF\xBD-4");  // shown with a replacement character

  UsageLimitsCache cache;
  cache.ledgers[UsageTool::claude] = ledger;
  const auto cacheFile = folder / "data" / UsageLimitsCache::fileName;
  auto saved = cache.save(cacheFile);
  ASSERT_TRUE(saved.ok()) << saved.error().message;
  auto loaded = UsageLimitsCache::load(cacheFile);
  ASSERT_TRUE(loaded.ok()) << loaded.error().message;
  TokenLedger& again = loaded->ledgers.at(UsageTool::claude);
  EXPECT_EQ(again, ledger);
  ASSERT_TRUE(again.files().count(file.string()));

  // After the restart: nothing new is nothing read; the reply streamed once more counts once.
  EXPECT_EQ(TokenLogs::update(again, UsageTool::claude, {claudeHome()}, longAgo, utc).filesRead, 0u);
  append(file, line);
  TokenLogs::update(again, UsageTool::claude, {claudeHome()}, longAgo, utc);
  EXPECT_EQ(again.usageOn("2025-03-14"), (TokenUsage{1, 2, 3, 4}));

  // A saved key that is marked but broken is refused with a sentence, not taken for a path.
  auto json = ledger.toJSON();
  auto entry = json["files"].begin().value();
  EXPECT_TRUE(testing::refusedSaying(TokenLedger::fromJSON({{"files", {{std::string("\0/caf%E", 7), entry}}}}),
                                     "not a path"));
}

}  // namespace
}  // namespace omnira
