#pragma once
// HTTPTransport over libcurl: HTTP and HTTPS only, redirects are answers (never followed,
// so a sign-in header cannot travel to another host), compressed answers are unpacked.
// Holds no state between requests; send() may run on any thread, each call with its own
// handle. libcurl's verbose output stays off, so secrets in headers are never printed.

#include "OmniraCore/usage/HTTPTransport.h"

namespace omnira {

class CurlTransport final : public HTTPTransport {
 public:
  CurlTransport();
  Result<Response, Failure> send(const Request& request) override;
};

}  // namespace omnira
