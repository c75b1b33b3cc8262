#include "OmniraCore/sampling/ProcessNetwork.h"

namespace omnira {

std::vector<uint64_t> ProcessNetwork::moved(const std::vector<TCPSocket>& sockets) const {
  std::vector<uint64_t> inodes;
  if (!primed_) return inodes;
  for (const auto& socket : sockets) {
    if (socket.inode == 0 || !socket.bytesReceived || !socket.bytesSent) continue;
    const auto before = last_.find(socket.inode);
    const bool carried = before == last_.end()
                             ? *socket.bytesReceived > 0 || *socket.bytesSent > 0
                             : *socket.bytesReceived > before->second.in || *socket.bytesSent > before->second.out;
    if (carried) inodes.push_back(socket.inode);
  }
  return inodes;
}

std::unordered_map<int32_t, ProcessNetwork::Bytes> ProcessNetwork::step(const std::vector<TCPSocket>& sockets,
                                                                        const Owners& owners) {
  std::unordered_map<int32_t, Bytes> moved;
  std::unordered_map<uint64_t, Seen> seen;
  seen.reserve(sockets.size());
  for (const auto& socket : sockets) {
    if (socket.inode == 0 || !socket.bytesReceived || !socket.bytesSent) continue;
    const Seen now{*socket.bytesReceived, *socket.bytesSent};
    if (!seen.emplace(socket.inode, now).second) continue;  // listed twice: once is enough
    Bytes carried;
    if (const auto before = last_.find(socket.inode); before != last_.end()) {
      if (now.in >= before->second.in) carried.in = now.in - before->second.in;
      if (now.out >= before->second.out) carried.out = now.out - before->second.out;
    } else if (primed_) {
      carried = {now.in, now.out};
    }
    const auto owner = owners.find(socket.inode);
    if (owner == owners.end() || (carried.in == 0 && carried.out == 0)) continue;
    Bytes& bytes = moved[owner->second];
    bytes.in += carried.in;
    bytes.out += carried.out;
  }
  last_ = std::move(seen);
  primed_ = true;
  return moved;
}

}  // namespace omnira
