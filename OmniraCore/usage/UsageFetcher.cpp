#include "OmniraCore/usage/UsageFetcher.h"

#include <algorithm>

namespace omnira {

UsageFetcher::UsageFetcher(std::shared_ptr<HTTPTransport> transport) : transport_(std::move(transport)) {}

void UsageFetcher::add(std::unique_ptr<UsageProvider> provider) {
  if (!provider) return;
  const UsageTool tool = provider->tool();
  providers_[tool] = std::move(provider);
}

UsageFetcher::Answer UsageFetcher::fetch(const std::vector<UsageTool>& tools, const std::vector<UsageLogin>& logins,
                                         Date now) {
  Answer answer;
  for (const UsageTool tool : tools) {
    const auto provider = providers_.find(tool);
    const bool asked = provider != providers_.end();
    if (!asked && !UsageLogin::findsSignIns(tool)) continue;
    const bool signedIn = std::any_of(logins.begin(), logins.end(), [&](const UsageLogin& login) { return login.tool == tool; });
    if (!signedIn) {
      answer.problems.push_back({tool, UsageProblem::Kind::notSignedIn, std::nullopt});
      continue;
    }
    for (const auto& login : logins) {
      if (login.tool != tool) continue;
      if (!login.isUsable(now)) {
        answer.problems.push_back({tool, UsageProblem::Kind::signInRejected, login.email});
        continue;
      }
      if (!asked || !transport_) continue;
      auto part = provider->second->fetch(login, *transport_, now);
      std::move(part.accounts.begin(), part.accounts.end(), std::back_inserter(answer.accounts));
      std::move(part.problems.begin(), part.problems.end(), std::back_inserter(answer.problems));
      std::move(part.renewedLogins.begin(), part.renewedLogins.end(), std::back_inserter(answer.renewedLogins));
    }
  }
  return answer;
}

}  // namespace omnira
