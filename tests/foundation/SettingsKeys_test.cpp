// The settings table, the typed reads that fall back to it, and changing the file on disk.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <fstream>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/history/AppLimit.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/platform/linux/TempTree.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using Kind = SettingsFile::Failure::Kind;

struct SettingsOnDisk : ::testing::Test {
  platform::TempTree tree;
  const fs::path& root = tree.root();
  fs::path file = root / "config" / "Omnira" / "settings.json";
  void write(const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::trunc | std::ios::binary) << text;
  }
  std::string contents() { return testing::slurp(file); }
  nlohmann::json stored() { return nlohmann::json::parse(contents()); }
};

TEST(SettingsKeys, EveryDefaultIsAllowedAndReadsBack) {
  const Settings defaults;
  for (const auto& spec : SettingsKeys::all()) {
    EXPECT_EQ(spec.refusal(spec.defaultValue), std::nullopt) << spec.key;
    EXPECT_EQ(defaults.value(spec.key), spec.defaultValue) << spec.key;
    EXPECT_EQ(SettingsKeys::find(spec.key), &spec);
  }
  EXPECT_FALSE(defaults.boolean(SettingsKeys::bridgeEnabled));  // agents are let in only when the person says so
  EXPECT_EQ(SettingsKeys::unknownKeySentence("refreshseconds"),
            "There is no setting \"refreshseconds\"; did you mean \"refreshSeconds\"?");
}

TEST(SettingsKeys, TypedTextIsCheckedStrictly) {
  const auto parse = [](std::string_view key, std::string_view text) { return SettingsKeys::find(key)->parse(text); };
  EXPECT_EQ(*parse("insightNotifications", "off"), false);
  EXPECT_EQ(parse("insightNotifications", "maybe").error(),
            "\"insightNotifications\" takes true or false, not \"maybe\".");
  EXPECT_EQ(parse("refreshSeconds", "10.5").error(), "\"refreshSeconds\" takes a number from 1 to 10, not 10.5.");
  for (auto bad : {"0.5", "-2", "nan", "inf", "2s", "", " 2", "99999999999999999999"})
    EXPECT_FALSE(parse("refreshSeconds", bad).ok()) << bad;
  EXPECT_EQ(parse("historySpan", "10").error(), "\"historySpan\" takes 5, 15 or 30, not 10.");
  const auto cpu = *parse("insightCPUPercent", "80");
  EXPECT_TRUE(cpu.is_number_integer());  // whole numbers stay whole in the file

  const std::string limit =
      R"([{"id":"0D3A3B0C-5E7B-4C8E-9F00-112233445566","appID":"exec:/usr/bin/make","appName":"make",)"
      R"("figure":"cpu","limit":80,"minutes":5,"isOn":true}])";
  ASSERT_TRUE(parse("insightAppLimits", limit).ok()) << parse("insightAppLimits", limit).error();
  EXPECT_EQ(parse("insightAppLimits", R"([{"appID":"x"}])").error(),
            "\"insightAppLimits\" takes a JSON array of app limits; item 1: \"id\" is missing or not text.");
  EXPECT_EQ(parse("insightAppLimits", "[").error(),
            "\"insightAppLimits\" takes a JSON array of app limits; \"[\" is not valid JSON (at byte 2).");
  EXPECT_EQ(parse("insightMutedApps", R"({"a": "tomorrow"})").error(),
            "\"insightMutedApps\" takes a JSON object from app id to an ISO 8601 date, or null for good; "
            "\"a\" is neither null nor an ISO 8601 date.");
}

TEST_F(SettingsOnDisk, HandEditedValuesReadAsTheKeyAllows) {
  write(R"({"refreshSeconds": 25, "historySpan": 12, "historyDays": 100, "temperatureUnit": "kelvin",
            "insightCPUPercent": -3, "insightHotCelsius": 85.5, "insightNotifications": "yes", "insightCPUMinutes": 1e308,
            "showsSystemInLists": true, "insightAppLimits": [{"id": 1}],
            "insightMutedApps": {"exec:/usr/bin/make": null, "firefox": "2030-01-01T00:00:00Z"}})");
  const auto settings = Settings::load(file);
  EXPECT_EQ(settings.number(SettingsKeys::refreshSeconds), 10);  // clamped
  EXPECT_EQ(settings.integer(SettingsKeys::historySpan), 15);     // nearest choice
  EXPECT_EQ(settings.string(SettingsKeys::temperatureUnit), "celsius");
  EXPECT_EQ(settings.number(SettingsKeys::insightCPUMinutes), 10);
  const auto unused = settings.unusedValues();
  EXPECT_NE(std::find(unused.begin(), unused.end(),
                      "\"insightCPUMinutes\" is 1e+308, but it takes a number from 0.01 to 60; the default 10 is used"),
            unused.end());
  EXPECT_TRUE(settings.boolean(SettingsKeys::insightNotifications));
  EXPECT_TRUE(SettingsKeys::appLimits(settings).empty());
  const auto muted = SettingsKeys::mutedApps(settings);
  ASSERT_EQ(muted.size(), 2u);
  EXPECT_EQ(muted.at("firefox"), parseISO8601("2030-01-01T00:00:00Z"));
  EXPECT_EQ(*settings.stored("refreshSeconds"), 25);  // the raw reads still see the file
  // Raw reads fall back per key where the stored value is not of the type asked for.
  write(R"({"historyDays": 90.5, "name": "x", "big": 18446744073709551615, "wrong": "3"})");
  const auto raw = Settings::load(file);
  EXPECT_EQ(raw.integer("historyDays", 30), 30);  // not a whole number
  EXPECT_EQ(raw.integer("big", 7), 7);
  write(R"({"refreshSeconds": 0})");
  EXPECT_EQ(Settings::load(file).number(SettingsKeys::refreshSeconds), 1);
  write(" \n");
  EXPECT_TRUE(Settings::read(file).ok());  // an empty file is one without settings
  fs::remove(file);
  EXPECT_TRUE(Settings::read(file).ok());  // no file yet: all defaults, no failure
}

TEST_F(SettingsOnDisk, SetAndUnsetKeepOtherKeysAndCreateTheFolder) {
  const SettingsFile settings(file);
  ASSERT_TRUE(settings.set("historySpan", "30").ok());  // no folder yet
  EXPECT_EQ(stored(), nlohmann::json({{"historySpan", 30}}));

  write(R"({"zebra": [1, {"b": 2, "a": 1}], "refreshSeconds": 3, "bridgeEnabled": true, "big": 18446744073709551615})");
  ASSERT_TRUE(settings.set("refreshSeconds", "7").ok());
  ASSERT_TRUE(settings.set("insightNotifications", "off").ok());
  ASSERT_TRUE(settings.setValue("insightMutedApps", {{"firefox", nullptr}}).ok());
  const std::string afterSet = contents();
  // Order and unknown keys as they were; the new keys at the end.
  EXPECT_LT(afterSet.find("zebra"), afterSet.find("refreshSeconds"));
  EXPECT_NE(afterSet.find("18446744073709551615"), std::string::npos);
  auto values = stored();
  EXPECT_EQ(values["refreshSeconds"], 7);
  EXPECT_EQ(values["bridgeEnabled"], true);
  EXPECT_EQ(values["zebra"], nlohmann::json::parse(R"([1, {"b": 2, "a": 1}])"));
  EXPECT_EQ(values["insightNotifications"], false);
  EXPECT_FALSE(Settings::load(file).boolean(SettingsKeys::insightNotifications));

  ASSERT_TRUE(settings.unset("refreshSeconds").ok());
  EXPECT_FALSE(stored().contains("refreshSeconds"));
  EXPECT_EQ(Settings::load(file).number(SettingsKeys::refreshSeconds), 1);
  ASSERT_TRUE(settings.unset("refreshSeconds").ok());  // already gone: nothing to do
  EXPECT_TRUE(stored().contains("bridgeEnabled"));
  for (const auto& entry : fs::directory_iterator(file.parent_path())) {
    if (entry.path().filename() == "settings.json.lock") continue;  // kept for the next change
    EXPECT_EQ(entry.path().filename(), "settings.json") << "a temporary file was left behind";
  }
}

TEST_F(SettingsOnDisk, RefusalsChangeNothing) {
  const SettingsFile settings(file);
  const std::string original = R"({"refreshSeconds": 3})";
  write(original);
  const auto refused = [&](Kind kind, const auto& result) {
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().kind, kind) << result.error().message;
    EXPECT_EQ(contents(), original);
  };
  refused(Kind::unknownKey, settings.set("refreshRate", "3"));
  refused(Kind::unknownKey, settings.unset("refreshRate"));
  refused(Kind::wrongValue, settings.set("refreshSeconds", "60"));
  refused(Kind::wrongValue, settings.setValue("historySpan", 10));
  refused(Kind::wrongValue, settings.set("insightAppLimits", R"([{"id": 1}])"));

  for (const std::string& broken : {std::string(R"({"refreshSeconds": 3,)"), std::string("[1, 2]"),
                                   std::string("\xff\xfe{}")}) {
    write(broken);
    EXPECT_FALSE(Settings::read(file).ok());
    EXPECT_EQ(Settings::load(file).number(SettingsKeys::refreshSeconds), 1);
    EXPECT_FALSE(settings.unset("refreshSeconds").ok());
    auto failure = settings.set("refreshSeconds", "4");
    ASSERT_FALSE(failure.ok());
    EXPECT_EQ(failure.error().kind, Kind::unusable);
    EXPECT_NE(failure.error().message.find(file.string()), std::string::npos) << failure.error().message;
    EXPECT_EQ(contents(), broken) << "a malformed file must be left byte for byte";
  }

  if (::geteuid() != 0) {  // root writes anywhere
    write(original);
    fs::permissions(file.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
    refused(Kind::notWritten, settings.set("refreshSeconds", "4"));
    fs::permissions(file.parent_path(), fs::perms::owner_all);
  }
}

TEST_F(SettingsOnDisk, ALinkedFileStaysLinked) {
  const fs::path real = root / "dotfiles" / "omnira.json";
  fs::create_directories(real.parent_path());
  fs::create_directories(file.parent_path());
  std::ofstream(real) << "{}";
  fs::create_symlink(real, file);
  ASSERT_TRUE(SettingsFile(file).set("temperatureUnit", "fahrenheit").ok());
  EXPECT_TRUE(fs::is_symlink(file));
  EXPECT_EQ(Settings::load(file).string(SettingsKeys::temperatureUnit), "fahrenheit");
}

TEST(SettingsKeys, EveryNumberHasARangeNamedWhenRefused) {
  for (const auto& spec : SettingsKeys::all()) {
    if (spec.type != SettingSpec::Type::number) continue;
    EXPECT_TRUE(spec.ranged()) << spec.key;
    const auto huge = spec.parse("1e308");
    ASSERT_FALSE(huge.ok()) << spec.key;
    EXPECT_NE(huge.error().find(fmt::format("takes a number from {} to {}", spec.minimum, spec.maximum)),
              std::string::npos)
        << huge.error();
    EXPECT_FALSE(spec.refusal(spec.maximum)) << spec.key;
    EXPECT_TRUE(spec.refusal(spec.maximum * 2)) << spec.key;
  }
}

TEST_F(SettingsOnDisk, DeepNestingIsRefusedWithoutCrashing) {
  // Valid JSON, 160,000 levels deep: copying or writing it recursed once per level.
  const std::string deep = "{\"refreshSeconds\": 3, \"x\": " + std::string(160'000, '[') + std::string(160'000, ']') + "}";
  write(deep);
  EXPECT_TRUE(testing::refusedSaying(Settings::read(file), "nests deeper than 64 levels"));
  EXPECT_EQ(Settings::load(file).number(SettingsKeys::refreshSeconds), 1);
  const SettingsFile settings(file);
  auto set = settings.set("refreshSeconds", "4");
  ASSERT_FALSE(set.ok());
  EXPECT_EQ(set.error().kind, Kind::unusable);
  EXPECT_FALSE(settings.unset("refreshSeconds").ok());
  EXPECT_EQ(contents(), deep);
  EXPECT_FALSE(SettingsKeys::find("insightAppLimits")->parse(std::string(100'000, '[')).ok());

  // Sixty-four levels are fine.
  write("{\"x\": " + std::string(63, '[') + std::string(63, ']') + "}");
  EXPECT_TRUE(Settings::read(file).ok());
  EXPECT_TRUE(settings.set("refreshSeconds", "4").ok());
}

TEST_F(SettingsOnDisk, AHugeFileKeepsEveryKeyAndItsBytes) {
  // 50,000 keys, just under the size cap: each key was looked up among all before it.
  std::string huge = "{";
  for (int i = 0; i < 50'000; ++i) huge += fmt::format("{}\"k{:07}\": {}", i ? ", " : "", i, i);
  huge += R"(, "refreshSeconds": 3, "temperatur\u0065Unit": "fahrenheit", "zebra": [1, {"b": 2, "a": 1}]})";
  write(huge);
  const SettingsFile settings(file);
  auto first = settings.set("refreshSeconds", "7");
  ASSERT_TRUE(first.ok()) << first.error().message;
  ASSERT_TRUE(settings.set("temperatureUnit", "celsius").ok());  // the same key, however it is spelt
  ASSERT_TRUE(settings.set("historySpan", "30").ok());
  const std::string after = contents();
  EXPECT_TRUE(after.starts_with("{\n  \"k0000000\": 0,\n  \"k0000001\": 1,\n  \"k0000002\": 2,\n")) << after.substr(0, 80);
  const std::string tail = R"(
  "k0049999": 49999,
  "refreshSeconds": 7,
  "temperatur\u0065Unit": "celsius",
  "zebra": [1, {"b": 2, "a": 1}],
  "historySpan": 30
}
)";
  ASSERT_GE(after.size(), tail.size());
  EXPECT_EQ(after.substr(after.size() - tail.size()), tail);
  ASSERT_TRUE(settings.unset("temperatureUnit").ok());
  EXPECT_EQ(contents().find("Unit"), std::string::npos);

  // Past the cap: refused with a sentence and left as it is.
  const std::string over = "{\"k\": \"" + std::string(AtomicFile::settingsLimit, 'x') + "\"}";
  write(over);
  EXPECT_TRUE(testing::refusedSaying(settings.set("historySpan", "5"), "larger than"));
  EXPECT_EQ(contents(), over);
}

}  // namespace
}  // namespace omnira
