#pragma once
// The CPU time this process has used so far, user and system, for the probes that time
// one step of Omnira beside a peer tool.

#include <sys/resource.h>

namespace omnira::bench {

inline double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace omnira::bench
