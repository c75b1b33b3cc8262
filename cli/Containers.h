#pragma once
// `omnira containers [NAME] [--json]`: the running containers of every engine that
// answers, with what each uses over a second.

#include <cstdio>
#include <string>

#include "OmniraCore/containers/ContainerSnapshot.h"

namespace omnira::cli {

struct ContainersRequest {
  std::string name;  // empty: every container
  bool json = false;
};

// Prints the containers that `request` names and why an engine showed none; `home` is
// shown as "~". Returns the exit status: 0, or 1 when a name matches no container.
int printContainers(const ContainerSnapshot& snapshot, const ContainersRequest& request, const std::string& home,
                    std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
