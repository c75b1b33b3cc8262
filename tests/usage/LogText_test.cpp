// The agents' log lines read from text already in memory must book what the same bytes
// read from a file book: the fuzz targets and any caller holding the bytes rely on it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "OmniraCore/usage/CodexLocalLimits.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

using namespace std::chrono_literals;
using namespace usage_testing;

struct LogTextTest : LogFolder {};

TEST_F(LogTextTest, TextBooksWhatTheSameFileBooks) {
  const DayCalendar utc = DayCalendar::fixed(0s);
  for (const auto& [tool, name] : {std::pair{UsageTool::claude, "claude/streamed.jsonl"},
                                   std::pair{UsageTool::codex, "codex/rollout-2025-03-14T12-00-00-restart.jsonl"}}) {
    SCOPED_TRACE(name);
    const std::string bytes = read(fixtures / name);
    const auto file = folder / std::to_string(bytes.size()) / name;  // one log per folder
    replace(file, bytes);
    TokenLedger fromFile;
    TokenLogs::updateFolders(fromFile, tool, {file.parent_path()}, dateFromSecondsSinceEpoch(0), utc);
    ASSERT_EQ(fromFile.files().size(), 1u);
    const std::string path = fromFile.files().begin()->first;

    TokenLedger fromText;
    TokenLogs::readLines(fromText, tool, path, bytes, utc);
    ASSERT_EQ(fromText.files().size(), 1u);
    const auto& a = fromFile.files().begin()->second;
    const auto& b = fromText.files().at(path);
    EXPECT_EQ(b.days, a.days);
    EXPECT_EQ(b.counted, a.counted);
    EXPECT_EQ(fromText.byModel(), fromFile.byModel());

    // A last line without its newline waits, as it does in a file still being written.
    ASSERT_EQ(bytes.back(), '\n');
    const std::string cut = bytes.substr(0, bytes.size() - 1);
    const std::string before = bytes.substr(0, cut.rfind('\n') + 1);
    TokenLedger partial, whole;
    TokenLogs::readLines(partial, tool, path, cut, utc);
    TokenLogs::readLines(whole, tool, path, before, utc);
    EXPECT_EQ(partial.byModel(), whole.byModel());
  }
}

TEST_F(LogTextTest, ALimitsLineReadsAsTheLogItStandsIn) {
  const std::string relative = "sessions/2026/11/20/rollout-2026-11-20T10-00-00-new.jsonl";
  const std::string bytes = read(fixtures / "codex-limits" / "current" / relative);
  const auto file = folder / relative;
  replace(file, bytes);
  const Date now = dateFromSecondsSinceEpoch(1795176000);
  const Date modified = now - 1min;
  const auto seconds = static_cast<time_t>(secondsSinceEpoch(modified));
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const auto account = CodexLocalLimits::read(std::vector{folder}, now);
  ASSERT_TRUE(account.has_value());

  // The log's newest line with a reading is the one the account came from.
  std::optional<CodexLocalLimits::Reading> last;
  std::istringstream in(bytes);
  for (std::string line; std::getline(in, line);)
    if (auto reading = CodexLocalLimits::readLine(line, modified, now)) last = reading;
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->windows, account->windows);
  EXPECT_EQ(last->written, account->fetchedAt);
  EXPECT_FALSE(CodexLocalLimits::readLine("{\"type\":\"event_msg\"}", modified, now).has_value());
}

}  // namespace
}  // namespace omnira
