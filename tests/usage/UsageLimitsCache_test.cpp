// The usage-limits cache on disk: a cache that does not decode is moved aside (what cannot be
// read at all is SavedFile_test's).

#include "OmniraCore/usage/UsageLimitsCache.h"

#include <gtest/gtest.h>

#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct UsageLimitsCacheFile : usage_testing::LogFolder {};

TEST_F(UsageLimitsCacheFile, DamageIsMovedAside) {
  const fs::path file = folder / UsageLimitsCache::fileName;
  UsageLimitsCache cache;
  cache.refreshedAt = Date(std::chrono::seconds(1'800'000'000));

  const std::string unknownTool = R"({"ledgers": {"notatool": {}}, "ledgerVersion": 2})";
  std::ofstream(file) << unknownTool;
  auto dropped = UsageLimitsCache::load(file);
  ASSERT_FALSE(dropped.ok());
  const auto aside = file.string() + ".bad-" + formatLocal(std::chrono::system_clock::now(), "%Y-%m-%d");
  EXPECT_NE(dropped.error().message.find(aside), std::string::npos) << dropped.error().message;
  EXPECT_EQ(read(aside), unknownTool);
  ASSERT_TRUE(cache.save(file).ok());
  EXPECT_EQ(UsageLimitsCache::load(file).value(), cache);

}

}  // namespace
}  // namespace omnira
