#pragma once
// A coding tool's sign-in found on this computer: Claude Code's ".credentials.json" in each
// Claude home and Codex's "auth.json" in each Codex home, checked for presence and expiry
// only. Reading never writes them: the tools renew their own sign-ins.
//
// Secrets: the one credential a provider needs for its request (an access token or an API
// key) is kept in a `Secret`, which has no text form, is never part of a failure or a log
// line and is wiped when it goes. Refresh tokens are not kept at all, only whether one is
// there. Failures name the file and what is wrong, never what the file holds.
//
// A plain value, read on the refresh's worker thread and handed to the fetcher.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

struct UsageLogin {
  using Environment = AppPaths::Environment;

  enum class Method {
    account,  // signed in with an account (an OAuth sign-in), which has a plan with limits
    apiKey,   // an API key, which is paid per token and has no plan
  };

  // Holds a credential for the one request that needs it. Copies are deliberate and few;
  // each copy wipes its bytes when destroyed.
  class Secret {
   public:
    Secret() = default;
    explicit Secret(std::string value) : value_(std::move(value)) {}
    Secret(const Secret&) = default;
    Secret(Secret&&) noexcept = default;
    Secret& operator=(const Secret& other);
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    bool isEmpty() const { return value_.empty(); }
    // Only for building the provider's request; never for logs, messages or files.
    const std::string& reveal() const { return value_; }

   private:
    void wipe();
    std::string value_;
  };

  struct Failure {
    std::filesystem::path file;
    std::string message;  // "Codex's sign-in file /home/ann/.codex/auth.json is not valid JSON."
  };

  // What a search found: the usable and expired sign-ins, and the files that could not be read.
  struct Found {
    std::vector<UsageLogin> logins;
    std::vector<Failure> failures;
  };

  UsageTool tool = UsageTool::claude;
  std::filesystem::path file;            // where the sign-in was read
  Method method = Method::account;
  std::optional<Date> expiresAt;         // when the credential stops working; absent: no expiry known
  bool canRenew = false;                 // a refresh token is on file; the tool renews on its next use
  std::optional<std::string> email;      // the account's e-mail, where the sign-in names it
  std::optional<std::string> plan;       // the plan's name as the sign-in states it ("max", "plus")
  std::optional<std::string> accountId;  // the provider's account id, sent beside the credential
  Secret credential;

  // The credential still works at that moment (no expiry known counts as working).
  bool isUsable(Date at) const;

  // Tools whose sign-ins Omnira knows how to find: Claude and Codex.
  static bool findsSignIns(UsageTool tool);

  // Looks in every home of each listed tool that findsSignIns(); the homes come from
  // UsageLogins. A missing file is no sign-in and no failure.
  static Found find(const std::vector<UsageTool>& tools, const Environment& environment);

  // One file each. Nothing (and no failure) when the file is missing or holds no sign-in
  // (Claude Code keeps other tokens there too; Codex leaves an empty one after a sign-out).
  static Result<std::optional<UsageLogin>, Failure> readClaude(const std::filesystem::path& file);
  static Result<std::optional<UsageLogin>, Failure> readCodex(const std::filesystem::path& file);
};

}  // namespace omnira
