#include "OmniraCore/foundation/JSONValue.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

TEST(JSONValue, RoundTripsEveryCaseCompactly) {
  auto value = JSONValue::object({{"b", true}, {"a", JSONValue::array({1, 2.5, "x", nullptr})}, {"n", -3}});
  EXPECT_EQ(value.encoded(), R"({"a":[1,2.5,"x",null],"b":true,"n":-3})");
  auto back = JSONValue::parse(value.encoded());
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(*back, value);
}

}  // namespace
}  // namespace omnira
