#pragma once
// Where one provider's usage client plugs into UsageFetcher: it turns a usable sign-in of
// its tool into accounts with limit windows, asking the provider's usage endpoint through
// the fetcher's transport.
//
// A provider is called on the refresh's worker thread, one login at a time, and keeps no
// state the fetcher relies on. It reports what went wrong as UsageProblems (a refused
// sign-in, throttling, an unreachable host, an answer of an unknown shape) and never logs a
// login's credential, a request's headers or an answer's body.

#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/HTTPTransport.h"
#include "OmniraCore/usage/UsageAccount.h"
#include "OmniraCore/usage/UsageLogin.h"
#include "OmniraCore/usage/UsageProblem.h"

namespace omnira {

class UsageProvider {
 public:
  struct Answer {
    std::vector<UsageAccount> accounts;
    std::vector<UsageProblem> problems;
    // Sign-ins the provider renewed while asking; the caller may use them next time.
    std::vector<UsageLogin> renewedLogins;
  };

  virtual ~UsageProvider() = default;
  virtual UsageTool tool() const = 0;
  // Only called with a usable login of tool().
  virtual Answer fetch(const UsageLogin& login, HTTPTransport& transport, Date now) = 0;
};

}  // namespace omnira
