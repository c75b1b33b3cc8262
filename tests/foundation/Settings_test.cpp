#include "OmniraCore/foundation/Settings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct SettingsFile : ::testing::Test {
  fs::path file = fs::temp_directory_path() / ("omnira-settings-" + std::to_string(::getpid()) + ".json");
  void write(const std::string& text) { std::ofstream(file, std::ios::trunc) << text; }
  std::string contents() {
    std::ifstream in(file);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  void TearDown() override { fs::remove(file); }
};

TEST_F(SettingsFile, ReadsTypedValuesAndFallsBackPerKey) {
  write(R"({"refreshSeconds": 2, "historyDays": 90.5, "insightNotifications": false, "name": "x",
            "big": 18446744073709551615, "wrong": "3"})");
  auto settings = Settings::load(file);
  EXPECT_EQ(settings.integer("refreshSeconds", 1), 2);
  EXPECT_DOUBLE_EQ(settings.number("historyDays", 30), 90.5);
  EXPECT_EQ(settings.integer("historyDays", 30), 30);  // not a whole number
  EXPECT_FALSE(settings.boolean("insightNotifications", true));
  EXPECT_EQ(settings.string("name", ""), "x");
  EXPECT_EQ(settings.integer("big", 7), 7);
  EXPECT_DOUBLE_EQ(settings.number("wrong", 5), 5);
  EXPECT_TRUE(settings.boolean("missing", true));
}

TEST_F(SettingsFile, MalformedFileReadsAsDefaultsAndIsLeftAlone) {
  for (const std::string text : {"{\"refreshSeconds\": 2", "[1, 2]", "\x01\x02"}) {
    write(text);
    EXPECT_FALSE(Settings::read(file).ok());
    EXPECT_EQ(Settings::load(file).integer("refreshSeconds", 1), 1);
    EXPECT_EQ(contents(), text);
  }
  fs::remove(file);
  EXPECT_TRUE(Settings::read(file).ok());  // no file yet: all defaults, no failure
}

}  // namespace
}  // namespace omnira
