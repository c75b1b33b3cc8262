#pragma once
// Token counts of one or many model replies. A plain value (equatable, hashable).
// Sums add field by field; the four fields never overlap, so `total` is what was really
// sent and received. JSON keys "input", "output", "cacheRead", "cacheWrite".

#include <cstddef>
#include <cstdint>
#include <limits>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

struct TokenUsage {
  int64_t input = 0;       // sent to the model, less what came from the prompt cache
  int64_t output = 0;      // written back by the model
  int64_t cacheRead = 0;   // read from the prompt cache
  int64_t cacheWrite = 0;  // written to the prompt cache

  // Sums stop at the largest count instead of wrapping round: a log may claim any number.
  int64_t total() const { return sum(sum(input, output), sum(cacheRead, cacheWrite)); }
  bool isZero() const { return input == 0 && output == 0 && cacheRead == 0 && cacheWrite == 0; }

  TokenUsage& operator+=(const TokenUsage& other) {
    input = sum(input, other.input);
    output = sum(output, other.output);
    cacheRead = sum(cacheRead, other.cacheRead);
    cacheWrite = sum(cacheWrite, other.cacheWrite);
    return *this;
  }
  static int64_t sum(int64_t a, int64_t b) {
    int64_t result;
    if (__builtin_add_overflow(a, b, &result))
      return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    return result;
  }
  friend TokenUsage operator+(TokenUsage a, const TokenUsage& b) { return a += b; }
  friend bool operator==(const TokenUsage&, const TokenUsage&) = default;

  nlohmann::json toJSON() const;
  static Result<TokenUsage, UsageDecodeFailure> fromJSON(const nlohmann::json& json);
};

}  // namespace omnira

template <>
struct std::hash<omnira::TokenUsage> {
  size_t operator()(const omnira::TokenUsage& usage) const noexcept;
};
