#pragma once
// One expectation for "this call failed, and its sentence says why": succeeds when `result`
// holds a failure whose message contains `words`, and prints that message otherwise.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace omnira::testing {

template <class Result>
::testing::AssertionResult refusedSaying(const Result& result, std::string_view words) {
  bool succeeded;
  if constexpr (requires { result.ok(); }) succeeded = result.ok();
  else succeeded = static_cast<bool>(result);
  if (succeeded) return ::testing::AssertionFailure() << "it succeeded";
  const std::string& message = result.error().message;
  if (message.find(words) == std::string::npos) return ::testing::AssertionFailure() << "it said: " << message;
  return ::testing::AssertionSuccess();
}

}  // namespace omnira::testing
