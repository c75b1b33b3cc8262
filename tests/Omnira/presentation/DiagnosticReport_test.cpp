// The diagnostic report on real files: a settings file with a token in it, and a log as
// journalctl prints it, cut at 30 minutes; then the whole path from the status icon's menu
// to the clipboard.

#include "Omnira/presentation/DiagnosticReport.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/StatusIcon.h"
#include "tests/Omnira/presentation/RunningStore.h"

namespace omnira::presentation {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class DiagnosticReportTest : public testing::RunningStore {
 protected:
  DiagnosticFacts facts() const { return {"9.8.7", "Debian GNU/Linux 12 (bookworm)", paths(), now_}; }
  const Date now_ = std::chrono::system_clock::now();
};

TEST_F(DiagnosticReportTest, ListsEverySettingAndNeverTheToken) {
  writeSettings(R"({"metricsToken": "hunter2-s3cret", "refreshSeconds": 5, "historyDays": 100000})");
  const std::string report = diagnosticReport(facts(), {{}, "No journal runs here."});
  EXPECT_THAT(report, HasSubstr("Omnira: 9.8.7\n"));
  EXPECT_THAT(report, HasSubstr("System: Debian GNU/Linux 12 (bookworm)\n"));
  EXPECT_THAT(report, HasSubstr("Data folder: " + (root_ / "data").string() + "\n"));
  EXPECT_THAT(report, HasSubstr("Config folder: " + (root_ / "config").string() + "\n"));
  EXPECT_THAT(report, HasSubstr("  metricsToken = (set)\n"));
  EXPECT_THAT(report, Not(HasSubstr("hunter2")));
  for (const auto& spec : SettingsKeys::all()) EXPECT_THAT(report, HasSubstr("\n  " + std::string(spec.key) + " = "));
  // As Omnira reads them: what the file set, what it clamped, and the defaults.
  EXPECT_THAT(report, HasSubstr("  refreshSeconds = 5\n"));
  EXPECT_THAT(report, HasSubstr("(the file holds 100000,"));
  EXPECT_THAT(report, HasSubstr("  insightNotifications = true  (default)\n"));
  EXPECT_THAT(report, HasSubstr("Log of the last 30 minutes:\n  No journal runs here.\n"));

  // An empty token is no secret; a broken file is named and the defaults listed.
  writeSettings(R"({"metricsToken": ""})");
  EXPECT_THAT(diagnosticReport(facts(), {}), HasSubstr("  metricsToken = (none)\n"));
  writeSettings(R"({"metricsToken": "hunter2-s3cret", )");
  const std::string broken = diagnosticReport(facts(), {});
  EXPECT_THAT(broken, HasSubstr(settingsFile().string() + "):\n  "));
  EXPECT_THAT(broken, HasSubstr("uses the defaults"));
  EXPECT_THAT(broken, HasSubstr("  metricsToken = (none)\n"));
  EXPECT_THAT(broken, Not(HasSubstr("hunter2")));
  EXPECT_THAT(broken, HasSubstr("  (nothing logged)\n"));
}

TEST_F(DiagnosticReportTest, TheLogIsCutAtThirtyMinutes) {
  const auto at = [&](std::chrono::minutes ago) {
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>((now_ - ago).time_since_epoch()).count());
  };
  const auto entry = [&](std::chrono::minutes ago, const nlohmann::json& message, const char* priority) {
    return nlohmann::json{{"__REALTIME_TIMESTAMP", at(ago)}, {"PRIORITY", priority},
                          {"SYSLOG_IDENTIFIER", "omnira"}, {"MESSAGE", message}}.dump() + "\n";
  };
  const auto file = root_ / "journal.json";
  {
    std::ofstream out(file);
    out << entry(std::chrono::minutes(45), "Omnira 1.0 started", "6")
        << entry(std::chrono::minutes(31), "too old by a minute", "4")
        << entry(std::chrono::minutes(29), "Cannot read /proc/1/io\nPermission denied", "4")
        << "not an entry\n"
        << R"({"MESSAGE": "no time", "PRIORITY": "3"})" << "\n"
        << entry(std::chrono::minutes(1), nlohmann::json::array({0x66, 0x6f, 0xff}), "3")  // not UTF-8
        << entry(std::chrono::minutes(0), "cut off mid-li", "6").substr(0, 40);           // truncated
  }
  std::ifstream in(file);
  const LogExcerpt log = journalWindow(in, now_ - diagnosticLogSpan);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_TRUE(log.unreadable.empty());
  EXPECT_EQ(log.lines[0], formatLocal(now_ - std::chrono::minutes(29), "%Y-%m-%d %H:%M:%S") +
                              " warning: Cannot read /proc/1/io\n  Permission denied");
  EXPECT_EQ(log.lines[1], formatLocal(now_ - std::chrono::minutes(1), "%Y-%m-%d %H:%M:%S") + " error: fo\xff");

  const std::string report = diagnosticReport(facts(), log);
  EXPECT_THAT(report, HasSubstr(" warning: Cannot read /proc/1/io\n    Permission denied\n  "));
  EXPECT_THAT(report, Not(HasSubstr("started")));
  EXPECT_THAT(report, Not(HasSubstr("too old")));
}

TEST_F(DiagnosticReportTest, TheMenuPutsTheReportOnTheClipboard) {
  writeSettings(R"({"metricsToken": "hunter2-s3cret"})");
  auto& store = start();
  Desktop desktop(&store, paths(), Settings::load(settingsFile()));
  QSignalSpy copied(&desktop, &Desktop::diagnosticReportCopied);
  QGuiApplication::clipboard()->clear();
  QAction* copy = nullptr;
  for (QAction* action : desktop.statusIcon().menu()->actions())
    if (action->text() == "Copy Diagnostic Report") copy = action;
  ASSERT_NE(copy, nullptr);
  copy->trigger();
  EXPECT_EQ(copied.count(), 1);
  const std::string text = QGuiApplication::clipboard()->text().toStdString();
  EXPECT_THAT(text, HasSubstr("Omnira: " OMNIRA_VERSION "\n"));
  EXPECT_THAT(text, HasSubstr("  metricsToken = (set)\n"));
  EXPECT_THAT(text, Not(HasSubstr("hunter2")));
  // Lines of the log, or one sentence saying why there are none.
  EXPECT_THAT(text, ::testing::ContainsRegex("Log of the last 30 minutes:\n  [^\n]+\n$"));
}

}  // namespace
}  // namespace omnira::presentation
