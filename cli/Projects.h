#pragma once
// `omnira projects [NAME] [--json]`: the developer projects with something running in them.

#include <cstdio>
#include <string>
#include <vector>

#include "OmniraCore/containers/Projects.h"

namespace omnira::cli {

struct ProjectsRequest {
  std::string name;  // empty: every project
  bool json = false;
};

// Prints the projects that `request` names; `home` is shown as "~". Returns the exit
// status: 0, or 1 when a name matches no project.
int printProjects(const std::vector<Project>& projects, const ProjectsRequest& request, const std::string& home,
                  std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
