#pragma once
// The running containers of every engine that answers, with their figures: the list of
// each engine, then (when asked) one stats call per container, many at once. CPU and
// the network and block rates come from this sampler's own previous reading of the same
// container, so the first sample with stats has memory but no rates.
//
// An engine that does not answer, answers garbage or hangs shows no containers and costs
// at most its time-out; a container that is gone by its stats call (404) is skipped.
//
// Ownership and threads: one owner, one thread at a time (the application's container
// thread, or the command). sample() blocks for up to a time-out per engine plus the stats
// calls, so never call it on a thread that must stay responsive. The helper threads it
// starts for parallel calls end before it returns. Nothing here fails: failures are in
// the snapshot's engine rows, as a sentence.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/containers/ContainerEngine.h"
#include "OmniraCore/containers/ContainerSample.h"
#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/containers/DockerAPI.h"

namespace omnira {

class ContainerSampler {
 public:
  using Clock = std::chrono::steady_clock;

  struct Options {
    std::vector<ContainerEngine> engines;   // in the order tried
    // Stats calls at once. Docker answers each on its next collection, about a second away,
    // for every caller waiting then: asked a few at a time, 20 containers took 4 s, not 1.
    size_t parallelCalls = 32;
    std::chrono::milliseconds timeout = DockerAPI::kTimeout;
  };

  // The engines this person may run (ContainerEngine::known with this process's home
  // and environment).
  static Options forThisUser();

  explicit ContainerSampler(Options options);

  // Lists every present engine's containers; with `withStats`, measures each as well.
  ContainerSnapshot sample(bool withStats);

  // One stats reading of a container, kept for the next delta.
  struct Reading {
    DockerAPI::Stats stats;
    Clock::time_point at;
  };
  // Fills the figures of `container` from `now`, and from `before` (this sampler's last
  // reading, `seconds` earlier) for CPU and rates. Pure.
  static void measure(ContainerSample& container, const DockerAPI::Stats& now, const Reading* before, double seconds);

 private:
  Options options_;
  std::map<std::string, Reading> previous_;  // by container id
  std::map<std::string, uint64_t> memTotal_;  // by socket path; asked once
};

}  // namespace omnira
