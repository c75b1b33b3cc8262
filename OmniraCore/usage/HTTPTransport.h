#pragma once
// The seam through which usage clients talk HTTP: one request in, one response or a typed
// failure out. Production uses CurlTransport; tests talk to a real local server.
// Requests carry sign-in secrets in their headers, so no transport may log, print or copy a
// request's headers or body anywhere, and failures name only the host.
// An implementation must allow send() from any thread, one request per call.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class HTTPTransport {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  struct Request {
    std::string method = "GET";
    std::string url;
    Headers headers;
    std::string body;
    double timeout = 30;  // seconds for the whole exchange, connection included
  };

  struct Response {
    int status = 0;
    Headers headers;  // in the order received; names as the server spelled them
    std::string body;
    // The first header of that name, compared without regard to case.
    std::optional<std::string> header(std::string_view name) const;
  };

  struct Failure {
    enum class Kind {
      invalidRequest,  // the URL or method cannot be sent
      cannotConnect,   // no such host, or nothing listening
      timedOut,        // no whole answer within the request's timeout
      tooLarge,        // the answer was longer than maxResponseBytes
      transferFailed,  // the connection broke, or TLS failed
    };
    Kind kind;
    std::string message;  // a sentence for a person, naming the host only
  };

  // Answers to usage questions are small; anything longer is not one of them.
  static constexpr size_t maxResponseBytes = 8 * 1024 * 1024;

  virtual ~HTTPTransport() = default;
  virtual Result<Response, Failure> send(const Request& request) = 0;
};

}  // namespace omnira
