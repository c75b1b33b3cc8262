#pragma once
// The platform's say on which app a process belongs to, asked before the path rules.
// A platform knows things a path does not: how the process was launched, which
// installed app started it, whether it is a kernel thread or a system user's.
//
// Implementations are shared by the grouper and called from any thread at once;
// identify() must be thread-safe and cheap enough for a cache miss. It cannot fail:
// a process it knows nothing about is left to the path rules.

#include <optional>
#include <variant>

#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

class AppIdentifier {
 public:
  // The operating system's group; the grouper fills in its id and name.
  struct System {
    friend bool operator==(System, System) = default;
  };
  using Verdict = std::variant<System, AppGrouper::Descriptor>;

  virtual ~AppIdentifier() = default;

  // No verdict: the path rules decide. The answer may depend only on the sample's
  // path, name, uid, kernelThread, hasTerminal, sessionService, appUnitID and
  // flatpakAppID, which is what the grouper's cache is keyed by.
  virtual std::optional<Verdict> identify(const ProcessSample& sample) const = 0;

  // Rereads what identify() depends on (installed apps); safe while identify() runs.
  virtual void reload() {}
};

}  // namespace omnira
