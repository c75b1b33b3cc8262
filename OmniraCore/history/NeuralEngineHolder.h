#pragma once
// This tick's Neural Engine (NPU) reading and, when the store can tell, the app using it.
// Absent altogether when the machine has no such engine or it cannot be read.

#include <optional>

#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

struct NeuralEngineHolder {
  double load = 0;               // busy share, 0...1
  std::optional<AppGroup> app;   // named in the insight; its processes are not read
};

}  // namespace omnira
