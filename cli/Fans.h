#pragma once
// `omnira fans set INDEX RPM|auto`: sets a fan through the privileged helper, in the
// numbering `omnira fans` lists.
//
// The helper keeps a fan's speed only while the connection that set it is open, and puts
// the fan back when it closes (or when the helper stops). So `fans set INDEX RPM` stays in
// the foreground holding that connection, says so in one line, and gives the fan back on
// Ctrl-C, SIGTERM or SIGHUP (a closed terminal). That is what a person expects of a fan
// set by hand: it ends when they stop it or walk away, and a fan can never be left pinned
// low by a command long forgotten, which is how machines overheat. Put `&` after it to keep
// a shell free. `fans set INDEX auto` gives a fan back at once, also one that another
// `fans set` still holds.

#include <cstdio>
#include <optional>
#include <string>

#include "OmniraCore/sensors/HelperClient.h"

namespace omnira::cli {

struct FanSetRequest {
  int index = 0;
  std::string speed;  // a number of rpm, or "auto"
  std::string socket = HelperClient::kDefaultSocket;
};

// The rpm asked for, or nothing for "auto"; a sentence when `speed` is neither.
struct FanSpeed {
  std::optional<double> rpm;
};
std::optional<FanSpeed> parseFanSpeed(const std::string& speed);

// Returns 0 after the fan was given back (or set to auto), 1 when the helper failed or
// let go of the fan early, 2 for a speed that is not one.
int runFanSet(const FanSetRequest& request, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
