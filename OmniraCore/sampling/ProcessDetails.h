#pragma once
// Optional, costly per-process extras that callers ask the process sampler for.

#include <cstdint>

namespace omnira {

struct ProcessDetails {
  bool network = false;
  bool gpu = false;
  bool neuralEngine = false;
  bool projects = false;

  ProcessDetails operator|(ProcessDetails other) const {
    return {network || other.network, gpu || other.gpu, neuralEngine || other.neuralEngine,
            projects || other.projects};
  }
  bool empty() const { return !network && !gpu && !neuralEngine && !projects; }
  friend bool operator==(const ProcessDetails&, const ProcessDetails&) = default;
};

}  // namespace omnira
