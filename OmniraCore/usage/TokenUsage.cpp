#include "OmniraCore/usage/TokenUsage.h"

#include <functional>

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

nlohmann::json TokenUsage::toJSON() const {
  return {{"input", input}, {"output", output}, {"cacheRead", cacheRead}, {"cacheWrite", cacheWrite}};
}

Result<TokenUsage, UsageDecodeFailure> TokenUsage::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"a token usage is not an object"});
  TokenUsage usage;
  for (auto failure : {readInteger(json, "input", usage.input), readInteger(json, "output", usage.output),
                       readInteger(json, "cacheRead", usage.cacheRead),
                       readInteger(json, "cacheWrite", usage.cacheWrite)})
    if (failure) return fail(*failure);
  return usage;
}

}  // namespace omnira

size_t std::hash<omnira::TokenUsage>::operator()(const omnira::TokenUsage& usage) const noexcept {
  using omnira::usage_json::mix;
  size_t seed = std::hash<int64_t>()(usage.input);
  mix(seed, std::hash<int64_t>()(usage.output));
  mix(seed, std::hash<int64_t>()(usage.cacheRead));
  mix(seed, std::hash<int64_t>()(usage.cacheWrite));
  return seed;
}
