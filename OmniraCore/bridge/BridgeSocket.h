#pragma once
// The agent bridge's socket: where it lives, how its address is built, the line framing
// both ends use (one compact JSON document and a newline each way, one request per
// connection), and the client call `ask` that `omnira ask` and `omnira mcp` make.
//
// Any thread; no state. A Failure without a message means nothing listens at the path
// (Omnira is not running, or the bridge is off); one with a message is a sentence for
// the person or the agent.

#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class BridgeSocket {
 public:
  struct Failure {
    std::optional<std::string> message;
    friend bool operator==(const Failure&, const Failure&) = default;
  };

  static constexpr size_t kMaxPathBytes = 103;
  static constexpr size_t kReadChunk = 16384;
  static constexpr size_t kMaxLineBytes = 4u << 20;
  static constexpr const char* kPathTooLong = "The path to Omnira' socket is too long.";

  // "Omnira/bridge.sock" in the data folder: ~/.local/share/Omnira/bridge.sock.
  static std::filesystem::path path(const AppPaths& paths) { return paths.dataFile("bridge.sock"); }

  // AF_UNIX with the path and its NUL; fails with kPathTooLong past 103 bytes. The length
  // to pass to bind and connect is sizeof(sockaddr_un).
  static Result<sockaddr_un, Failure> address(const std::string& path);

  // Every byte, retrying after EINTR and short writes; false when the peer is gone or the
  // write fails otherwise. Never raises SIGPIPE.
  static bool write(int fd, std::string_view bytes);

  // One line without its newline, read 16,384 bytes at a time; nothing at end of stream
  // before a newline, on a read error or time-out, or once 4 MiB have come without one.
  // Bytes after the newline are dropped: the protocol sends nothing after it.
  static std::optional<std::string> readLine(int fd);

  // The client call: sends `request` and reads the reply, each bounded by `timeout`
  // (whole seconds). Failures: no message when nothing listens; "socket: …",
  // kPathTooLong, "connect: …", "Omnira closed the connection.", "Omnira did not answer
  // in time.".
  static Result<nlohmann::ordered_json, Failure> ask(const nlohmann::ordered_json& request, const std::string& path,
                                                     std::chrono::seconds timeout);
};

}  // namespace omnira
