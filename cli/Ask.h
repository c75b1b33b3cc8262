#pragma once
// `omnira ask TOOL [JSON-ARGUMENTS]`: one question to the running Omnira through its bridge,
// the way an agent asks, with the answer printed for people and scripts.

#include <cstdio>
#include <optional>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"

namespace omnira::cli {

// Prints the result as JSON. Returns 0; 1 when Omnira refused (the sentence on `err`) or
// could not be asked; 2 when the arguments are not a JSON object.
int runAsk(const std::string& tool, const std::optional<std::string>& arguments, const AppPaths& paths,
           std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
