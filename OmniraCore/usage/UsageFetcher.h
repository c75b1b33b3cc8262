#pragma once
// Asks the providers about the plans of the turned-on tools. For each tool, in the order
// given: a tool whose sign-ins Omnira can find (UsageLogin::findsSignIns) or that has a
// provider, but has no sign-in, gives `notSignedIn`; a sign-in whose credential has expired
// gives `signInRejected` (the tool renews it on its next use); a usable sign-in goes to the
// tool's registered UsageProvider, whose accounts and problems are passed on. Tools that
// Omnira can neither find sign-ins for nor ask are passed over silently: no sign-in known
// is not the same as none there.
//
// The providers' clients are registered with add(); until one is, a usable sign-in of that
// tool gives neither an account nor a problem.
//
// Owned by whoever runs a refresh and used on its worker thread; providers are called one
// after another on that thread.

#include <map>
#include <memory>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/HTTPTransport.h"
#include "OmniraCore/usage/UsageProvider.h"

namespace omnira {

class UsageFetcher {
 public:
  using Answer = UsageProvider::Answer;

  explicit UsageFetcher(std::shared_ptr<HTTPTransport> transport);

  // Registers the client of one tool; a later one for the same tool replaces it.
  void add(std::unique_ptr<UsageProvider> provider);
  bool asks(UsageTool tool) const { return providers_.contains(tool); }

  Answer fetch(const std::vector<UsageTool>& tools, const std::vector<UsageLogin>& logins, Date now);

 private:
  std::shared_ptr<HTTPTransport> transport_;
  std::map<UsageTool, std::unique_ptr<UsageProvider>> providers_;
};

}  // namespace omnira
