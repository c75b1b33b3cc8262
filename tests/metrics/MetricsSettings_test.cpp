#include <gtest/gtest.h>

#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {
namespace {

TEST(MetricsSettings, TakeAddressesAndTokensAsTypedAndBoundTheApps) {
  const auto* address = SettingsKeys::find("metricsAddress");
  const auto* token = SettingsKeys::find("metricsToken");
  const auto* apps = SettingsKeys::find("metricsMaxApps");
  ASSERT_TRUE(address && token && apps);

  // Typed on the command line without JSON's quotes, or with them.
  EXPECT_EQ(*address->parse("0.0.0.0:9464"), "0.0.0.0:9464");
  EXPECT_EQ(*address->parse("\"[::1]:9464\""), "[::1]:9464");
  EXPECT_EQ(*token->parse("123456"), "123456");  // digits stay text

  const auto noPort = address->parse("localhost");
  ASSERT_FALSE(noPort);
  EXPECT_NE(noPort.error().find("metricsAddress"), std::string::npos);
  EXPECT_FALSE(address->parse("127.0.0.1:99999"));
  EXPECT_FALSE(token->parse("two words"));
  EXPECT_FALSE(token->parse("caf\xC3\xA9"));

  EXPECT_FALSE(apps->parse("0"));
  // A hand-edited file is read leniently: clamped into the range, and text is no address.
  EXPECT_EQ(*apps->reading(5000), 1000);
  EXPECT_FALSE(address->reading(9464));
  EXPECT_FALSE(token->reading(nlohmann::json::array()));
}

}  // namespace
}  // namespace omnira
