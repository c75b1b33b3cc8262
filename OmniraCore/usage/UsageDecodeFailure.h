#pragma once
// Why a usage record could not be read back from JSON: a missing key, a value of the wrong
// type or an unknown raw value. One type for all usage records, so that whoever reads a
// whole cache file gets one kind of failure and can drop the cache as a whole.

#include <string>

namespace omnira {

struct UsageDecodeFailure {
  std::string message;  // names the key and what is wrong with it, e.g. "\"tool\" is not a known tool"
};

}  // namespace omnira
