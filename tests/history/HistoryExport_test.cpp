#include "OmniraCore/history/HistoryExport.h"

#include <gtest/gtest.h>

#include "tests/history/HistoryFiles.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using history_testing::app;
using history_testing::at;
using history_testing::noon;
using history_testing::tick;

TEST(HistoryExport, QuotesOnlyFieldsThatNeedItAndDoublesTheirQuotes) {
  EXPECT_EQ(HistoryExport::field("plain text"), "plain text");
  EXPECT_EQ(HistoryExport::field("a,b"), "\"a,b\"");
  EXPECT_EQ(HistoryExport::field("say \"hi\""), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(HistoryExport::field("two\nlines"), "\"two\nlines\"");
  EXPECT_EQ(HistoryExport::field("cr\r"), "\"cr\r\"");
  EXPECT_EQ(HistoryExport::record({"a", "b,c", ""}), "a,\"b,c\",\r\n");
}

struct HistoryExportFile : history_testing::HistoryFolder {};

TEST_F(HistoryExportFile, WritesTheMachineByFiveMinutesAndTheAppsByDayButNotIntoAMissingFolder) {
  auto database = open();
  ASSERT_TRUE(database);
  const std::string awkward = "Tools, \"Pro\"\nEdition";
  // Two cores half busy for 300 s: one core's worth, 100 %; 60 ticks of 36 J are 0.6 Wh.
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(database->record(tick(5, 0.5), {app("/x.desktop", awkward, 25, 2'000'000, 36)}, TickGroups::fresh, at(noon + 5 * i)));
  }
  ASSERT_TRUE(database->writeReading({.start = noon, .seconds = 300, .memoryUsedBytesPeak = 1'500'000'000,
                                      .memoryPressurePercentAverage = 12.34}));

  auto files = HistoryExport::write(*database, folder, at(noon), at(noon + 600));
  ASSERT_TRUE(files) << files.error().message;

  const std::string machine = contents(files->machine);
  const std::string header = HistoryExport::record(HistoryExport::machineColumns());
  ASSERT_EQ(machine.substr(0, header.size()), header);
  EXPECT_EQ(machine.substr(header.size()), HistoryExport::localMinute(noon) +
                                               ",300,100.0,1.00,1.50,12.3,0.3,0.3,0.3,0.3,0.600\r\n");

  const std::string apps = contents(files->apps);
  const std::string appHeader = HistoryExport::record(HistoryExport::appColumns());
  ASSERT_EQ(apps.substr(0, appHeader.size()), appHeader);
  const std::string dayStart =
      HistoryExport::localMinute(HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, at(noon)));
  EXPECT_EQ(apps.substr(appHeader.size()),
            dayStart + ",\"Tools, \"\"Pro\"\"\nEdition\",5.0,25.0,2.0,2.0,0.600,0.0,0.0,0.0,0.0\r\n");
  EXPECT_EQ(apps.find("/x.desktop"), std::string::npos);  // names and figures only
  EXPECT_EQ(dayStart.substr(11), "00:00");

  EXPECT_TRUE(testing::refusedSaying(HistoryExport::write(*database, folder / "missing", at(noon), at(noon)),
                                     "cannot write"));
}

}  // namespace
}  // namespace omnira
