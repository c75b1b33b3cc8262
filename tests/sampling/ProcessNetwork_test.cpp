// Network bytes per process: the step over socket lists. Real connections are counted in
// SocketDiagnostics_test.

#include "OmniraCore/sampling/ProcessNetwork.h"

#include <gtest/gtest.h>


namespace omnira {
namespace {

TCPSocket socket(uint64_t inode, uint64_t in, uint64_t out) {
  TCPSocket s;
  s.inode = inode;
  s.bytesReceived = in;
  s.bytesSent = out;
  return s;
}

TEST(ProcessNetwork, CountsWhatEachSocketMovedForItsHolder) {
  ProcessNetwork network;
  ProcessNetwork::Owners owners = {{1, 100}, {2, 100}, {3, 200}};
  // The baseline: what sockets carried before counts for nobody, held (1) or not (5).
  const std::vector<TCPSocket> first = {socket(1, 5000, 700), socket(2, 10, 10), socket(3, 1, 1),
                                        socket(5, 900, 900)};
  EXPECT_TRUE(network.moved(first).empty());
  auto moved = network.step(first, owners);
  EXPECT_TRUE(moved.empty());

  owners[4] = 200;  // opened since
  const std::vector<TCPSocket> second = {socket(1, 6000, 900), socket(2, 10, 10), socket(3, 0, 0),
                                         socket(4, 50, 60), socket(5, 999, 999), socket(6, 0, 0)};
  // Idle sockets, and new ones that carried nothing, need no holder.
  EXPECT_EQ(network.moved(second), (std::vector<uint64_t>{1, 4, 5}));
  moved = network.step(second, owners);
  EXPECT_EQ(moved[100], (ProcessNetwork::Bytes{1000, 200}));
  EXPECT_EQ(moved[200], (ProcessNetwork::Bytes{50, 60}));  // 3 went back: nothing
  EXPECT_EQ(moved.size(), 2u);                             // 5's bytes are nobody's

  // 1 closed (its bytes so far were counted); 5's holder is found: from its last figures.
  owners[5] = 300;
  owners[6] = 300;
  TCPSocket uncounted = socket(7, 0, 0);
  uncounted.bytesSent.reset();
  moved = network.step({socket(2, 15, 10), socket(5, 1000, 1001), socket(6, 30, 40), uncounted}, owners);
  EXPECT_EQ(moved[100], (ProcessNetwork::Bytes{5, 0}));
  EXPECT_EQ(moved[300], (ProcessNetwork::Bytes{1 + 30, 2 + 40}));
}

}  // namespace
}  // namespace omnira
