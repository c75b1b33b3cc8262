// `omnira insights` and the strain line of `omnira snapshot`, run as a person runs them, on
// a data folder of their own.

#include "cli/Insights.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "OmniraCore/history/WorthALook.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

Insight insight(const std::string& id, const std::string& title, Date date) {
  Insight i;
  i.id = *UUID::parse(id);
  i.date = date;
  i.kind = Insight::Kind::diskBurst;
  i.appID = "exec:/usr/bin/rsync";
  i.appName = "rsync";
  i.title = title;
  i.detail = "5.2 GB written in the last 10 minutes.";
  return i;
}

// Today at a local hour and minute.
Date today(int hour, int minute) {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = 0;
  tm.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&tm));
}

struct InsightsCommand : testing::CommandHome {
  fs::path file = root / "data" / "Omnira" / "insights.json";
  std::string contents() { return testing::slurp(file); }
  WorthALook saved() {
    auto list = WorthALook::load(file);
    EXPECT_TRUE(list);
    return list ? *list : WorthALook{};
  }
};

TEST_F(InsightsCommand, ListsPinsAndDismisses) {
  auto nothing = run("insights");
  EXPECT_EQ(nothing.status, 0);
  EXPECT_EQ(nothing.out, "Nothing is worth a look.\n");
  EXPECT_FALSE(fs::exists(file)) << "reading must not create the file";

  WorthALook list;
  list.note({insight("AAAA1111-0000-4000-8000-000000000001", "rsync is writing heavily to disk", today(9, 5)),
             insight("AAAA2222-0000-4000-8000-000000000002", "Firefox is keeping the CPU busy", today(10, 30)),
             insight("BBBB3333-0000-4000-8000-000000000003", "make is over your CPU limit", today(11, 45))});
  list.setStrain({{StrainKind::memory, today(14, 2)}});
  ASSERT_TRUE(list.save(file));

  auto text = run("insights");
  ASSERT_EQ(text.status, 0) << text.out;
  EXPECT_EQ(text.out,
            "Strain: memory since 14:02\n\n"
            "BBBB3333  11:45  make is over your CPU limit\n"
            "          5.2 GB written in the last 10 minutes.\n"
            "AAAA2222  10:30  Firefox is keeping the CPU busy\n"
            "          5.2 GB written in the last 10 minutes.\n"
            "AAAA1111  09:05  rsync is writing heavily to disk\n"
            "          5.2 GB written in the last 10 minutes.\n");

  // Any case, any length that names one insight.
  auto pinned = run("insights pin aaaa1");
  EXPECT_EQ(pinned.status, 0) << pinned.out;
  EXPECT_EQ(pinned.out, "Pinned AAAA1111: rsync is writing heavily to disk\n");
  EXPECT_TRUE(saved().isPinned(*UUID::parse("AAAA1111-0000-4000-8000-000000000001")));
  EXPECT_EQ(saved().strain(), list.strain());  // the rest of the file is kept
  auto json = nlohmann::json::parse(run("insights --json", false).out);
  ASSERT_EQ(json["insights"].size(), 3u);
  EXPECT_EQ(json["insights"][2]["pinned"], true);

  // Mistakes are sentences and change nothing.
  const std::string before = contents();
  auto ambiguous = run("insights dismiss AAAA");
  EXPECT_EQ(ambiguous.status, 2);
  EXPECT_EQ(ambiguous.out, "omnira: \"AAAA\" begins the ids of 2 insights; give more of the id.\n");
  auto unknown = run("insights unpin CCCC");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "omnira: No insight has an id that begins with \"CCCC\"; omnira insights lists them.\n");
  EXPECT_EQ(contents(), before);

  auto dismissed = run("insights dismiss bbbb3333-0000-4000-8000-000000000003");
  EXPECT_EQ(dismissed.status, 0) << dismissed.out;
  EXPECT_EQ(dismissed.out, "Dismissed BBBB3333: make is over your CPU limit\n");

  auto all = run("insights dismiss --all");
  EXPECT_EQ(all.status, 0) << all.out;
  EXPECT_EQ(all.out, "Dismissed 1 insight. 1 pinned one stays (omnira insights unpin ID).\n");
  ASSERT_EQ(saved().insights().size(), 1u);

  // A broken file: reading says so and where it was moved (SavedFile_test keeps its bytes).
  const std::string broken = "{\"insights\": [";
  std::ofstream(file, std::ios::trunc) << broken;
  auto damaged = run("insights");
  EXPECT_EQ(damaged.status, 1);
  EXPECT_NE(damaged.out.find("is not valid JSON"), std::string::npos) << damaged.out;
  const auto aside = file.string() + ".bad-" + formatLocal(std::chrono::system_clock::now(), "%Y-%m-%d");
  EXPECT_NE(damaged.out.find(aside), std::string::npos) << damaged.out;
}

TEST_F(InsightsCommand, SnapshotNamesTheStrainAndSinceWhenOmniraHasSeenIt) {
  const AppPaths paths(root / "data" / "Omnira", root / "config");
  SystemSample busy;
  busy.cpuUser = 0.7;
  busy.cpuSystem = 0.25;
  busy.memoryTotal = 16ull << 30;
  busy.diskTotal = 1000;
  busy.diskAvailable = 500;
  const Date now = today(15, 0);

  // Nothing saved: strained since this sample.
  EXPECT_EQ(cli::sampleStrain(busy, paths, Settings{}, now), (StrainSince{{StrainKind::cpu, now}}));

  // A running Omnira saw the CPU strained since 14:02; its memory strain is not this
  // sample's, so it is not named.
  WorthALook list;
  list.setStrain({{StrainKind::cpu, today(14, 2)}, {StrainKind::memory, today(13, 0)}});
  ASSERT_TRUE(list.save(paths.dataFile("insights.json")));
  EXPECT_EQ(cli::sampleStrain(busy, paths, Settings{}, now), (StrainSince{{StrainKind::cpu, today(14, 2)}}));

  // The real command on this machine says what it finds, strain or none.
  const auto snapshot = run("snapshot", false);
  ASSERT_EQ(snapshot.status, 0);
  EXPECT_NE(snapshot.out.find("\nStrain    "), std::string::npos) << snapshot.out;
  const auto json = nlohmann::json::parse(run("snapshot --json", false).out);
  for (const auto& [kind, since] : json["strain"].items()) {
    EXPECT_TRUE(strainKindFromRaw(kind)) << kind;
    EXPECT_TRUE(parseISO8601(since.get<std::string>())) << since;
  }
}

}  // namespace
}  // namespace omnira
