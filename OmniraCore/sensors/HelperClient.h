#pragma once
// The application's and the command's end of the privileged helper's socket.
//
// One connection, opened at the first request and kept: the helper puts fans set through
// it back when it closes (the destructor or close()), and closes it itself after 10 s
// without a request. Every connect, send and reply has `timeout` (1 s by default), so a
// sampling tick that asks is never held up for long. A connection the helper closed while
// idle is opened again once for a request that sets nothing; it is not for set_fan, whose
// session would be a new one.
//
// Owner: one thread at a time. Failures are typed, each with a sentence for the person:
//   notInstalled  nothing at the socket and no helper configuration
//   notRunning    installed, but nothing listens
//   refused       the helper closed without answering (another user) or answered with a
//                 sentence (a fan that cannot be set, ...)
//   badReply      the connection broke or the reply could not be read

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/sensors/HelperProtocol.h"

namespace omnira {

class HelperClient {
 public:
  struct Failure {
    enum class Kind { notInstalled, notRunning, refused, badReply };
    Kind kind = Kind::badReply;
    std::string message;
  };

  static constexpr const char* kDefaultSocket = "/run/omnira-helper.sock";
  static constexpr const char* kDefaultConfig = "/etc/omnira/helper.conf";

  struct Options {
    std::filesystem::path socket = kDefaultSocket;
    std::filesystem::path config = kDefaultConfig;  // only looked at to tell notInstalled from notRunning
    std::chrono::milliseconds timeout{1000};
  };

  HelperClient();
  explicit HelperClient(Options options);
  ~HelperClient();  // closes
  HelperClient(const HelperClient&) = delete;
  HelperClient& operator=(const HelperClient&) = delete;

  Result<HelperHello, Failure> hello();
  Result<std::vector<RaplCounter>, Failure> rapl();
  Result<std::vector<HelperProcessFigures>, Failure> processes(const std::vector<int32_t>& pids);
  Result<std::vector<FanStatus>, Failure> fans();
  // The rpm asked of the chip after clamping. Held while this connection stays open.
  Result<double, Failure> setFan(int index, double rpm);
  Result<void, Failure> setFanAutomatic(int index);

  bool connected() const { return fd_ >= 0; }
  void close();

 private:
  Result<std::string, Failure> ask(const HelperRequest& request);
  Result<void, Failure> connect();
  Result<std::string, Failure> exchange(const std::string& line);

  Options options_;
  int fd_ = -1;
  bool holdsFans_ = false;  // a set_fan went through this connection
};

}  // namespace omnira
