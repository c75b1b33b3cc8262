#pragma once
// Network bytes per process, from the machine's TCP sockets: every socket's counters
// belong to the process that holds it, and a process's bytes over an interval are what
// its sockets' counters moved by.
//
// The first step is a baseline: a socket seen then counts nothing, since its counters
// hold everything it carried before. A socket that appears later was opened since and
// counts in whole. Every socket's figures are remembered, held or not, so a socket whose
// holder is found late counts from its last figures, never its whole past. A socket's
// bytes up to its last step are kept when it closes; what it carried between that step
// and closing is not seen. Counters that go back count nothing.
//
// Finding a socket's holder means listing processes' descriptors, which is costly, so
// callers look only for the holders of the sockets that moved().
//
// Owned by the process sampler; one thread at a time.

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "OmniraCore/sampling/TCPSocket.h"

namespace omnira {

class ProcessNetwork {
 public:
  struct Bytes {
    uint64_t in = 0;
    uint64_t out = 0;
    friend bool operator==(const Bytes&, const Bytes&) = default;
  };
  using Owners = std::unordered_map<uint64_t, int32_t>;  // socket inode → pid

  // Inodes of the sockets that carried bytes since the last step (none before the
  // first): only they have bytes to give to a holder.
  std::vector<uint64_t> moved(const std::vector<TCPSocket>& sockets) const;
  // Bytes per pid since the last step. Sockets without a known holder count for nobody;
  // those without an inode or counters are not remembered.
  std::unordered_map<int32_t, Bytes> step(const std::vector<TCPSocket>& sockets, const Owners& owners);

 private:
  struct Seen {
    uint64_t in = 0;
    uint64_t out = 0;
  };
  std::unordered_map<uint64_t, Seen> last_;  // by inode
  bool primed_ = false;
};

}  // namespace omnira
