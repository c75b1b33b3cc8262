#include "OmniraCore/foundation/JSONValue.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

TEST(JSONValue, RoundTripsEveryCaseCompactlyAndAnswersOnlyForItsOwnCase) {
  auto value = JSONValue::object(
      {{"b", true}, {"a", JSONValue::array({1, 2.5, "x", nullptr, JSONValue::object({})})}, {"n", -3}});
  EXPECT_EQ(value.encoded(), R"({"a":[1,2.5,"x",null,{}],"b":true,"n":-3})");
  auto back = JSONValue::parse(value.encoded());
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(*back, value);
  EXPECT_EQ(JSONValue::parse(R"("caf\u00e9 \"q\"")")->encoded(), "\"caf\xc3\xa9 \\\"q\\\"\"");

  JSONValue number = 42;
  EXPECT_EQ(number.number(), 42.0);
  EXPECT_EQ(number.integer(), 42);
  EXPECT_FALSE(JSONValue(2.5).integer());
  EXPECT_FALSE(JSONValue("7").number());
  auto object = JSONValue::parse(R"({"k":[true]})");
  ASSERT_TRUE(object.ok());
  ASSERT_NE(object->find("k"), nullptr);
  EXPECT_EQ(object->find("k")->array()->at(0).boolean(), true);
  EXPECT_EQ(object->find("missing"), nullptr);
}

TEST(JSONValue, MalformedOrDeepTextIsAFailureWithASentence) {
  // A number past a double's range is no JSON value either, and no crash.
  for (const char* text : {"", "{", "[1,]", "{\"a\" 1}", "nul", "1 2", "\"unterminated", "[1e999]", "-3e0718"}) {
    auto parsed = JSONValue::parse(text);
    ASSERT_FALSE(parsed.ok()) << text;
    EXPECT_EQ(parsed.error().message.back(), '.');
  }
  // Big integers lose precision as doubles but never fail.
  EXPECT_TRUE(JSONValue::parse("18446744073709551615").ok());

  const auto deep = JSONValue::parse(std::string(160'000, '[') + std::string(160'000, ']'));
  ASSERT_FALSE(deep.ok());
  EXPECT_EQ(deep.error().message, "The text nests deeper than 64 levels.");
  // Brackets inside strings are text, not nesting.
  EXPECT_TRUE(JSONValue::parse("[\"" + std::string(1000, '[') + "\\\"\"]").ok());
  EXPECT_TRUE(JSONValue::parse(std::string(64, '[') + std::string(64, ']')).ok());
  EXPECT_FALSE(JSONValue::parse(std::string(65, '[') + std::string(65, ']')).ok());
  EXPECT_TRUE(JSONValue::parse("[1,").error().message.starts_with("The text is not valid JSON (at byte "));
}

}  // namespace
}  // namespace omnira
