#pragma once
// A minimal blocking HTTP/1.1 GET over a Unix-domain socket, for the container engines'
// APIs: one connection per request, the reply read until the server closes it.
//
// Any thread; no state. Every failure is a short text, and callers treat any failure as
// an engine that does not answer.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class UnixHTTP {
 public:
  struct Failure {
    std::string message;  // "connect No such file or directory", "status 404", ...
  };

  // A reply larger than this is refused rather than held in memory.
  static constexpr size_t kMaxReplyBytes = 64u << 20;
  // sockaddr_un's path, less room kept for the terminating NUL on every platform.
  static constexpr size_t kMaxPathBytes = 103;

  // The body of the reply to "GET path", de-chunked. `timeout` bounds the connect, the
  // write and the whole reply; a server that says nothing, or too slowly, fails after it.
  static Result<std::string, Failure> get(std::string_view path, const std::string& socketPath,
                                          std::chrono::milliseconds timeout);

  // The body of a whole reply: a 2xx or 304 status, the header, then the body as sent or
  // de-chunked. Public for tests of replies no server needs to send.
  static Result<std::string, Failure> body(std::string_view reply);
  static Result<std::string, Failure> dechunk(std::string_view chunked);
};

}  // namespace omnira
