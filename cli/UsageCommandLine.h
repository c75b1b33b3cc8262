#pragma once
// The command-line face of `omnira tokens` and `omnira limits`: their options on the
// command's CLI::App, and the run after parsing. Header-only because only main.cpp links
// CLI11; the work is in cli/Usage.h.

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <optional>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/usage/UsageRefresh.h"
#include "cli/Usage.h"

namespace omnira::cli {

class UsageCommandLine {
 public:
  explicit UsageCommandLine(CLI::App& app) {
    tokens_ = app.add_subcommand("tokens", "Tokens that Claude Code and Codex used, from their logs on this computer");
    tokens_->add_option("--days", tokensRequest_.days, "How many days back, today included (default 7)")
        ->type_name("N");
    tokens_->add_option("--tool", tokensRequest_.tool, "claude or codex (default both)")->type_name("TOOL");
    tokens_->add_flag("--json", tokensRequest_.json, "Print JSON: per tool, each day's tokens by model");
    limits_ = app.add_subcommand("limits", "What is left of the AI coding tools' plans, and when it resets");
    limits_->add_flag("--json", limitsRequest_.json, "Print JSON");
  }

  // The exit status when one of the two commands was given; nothing otherwise.
  std::optional<int> run() const {
    if (!tokens_->parsed() && !limits_->parsed()) return std::nullopt;
    auto paths = AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (auto safe = paths->prepareFolders(); !safe) {
      fmt::print(stderr, "omnira: {}\n", safe.error().message);
      return 1;
    }
    const auto environment = UsageRefresh::processEnvironment();
    const auto now = std::chrono::system_clock::now();
    if (tokens_->parsed()) return runTokens(tokensRequest_, *paths, environment, now, stdout, stderr);
    return runLimits(limitsRequest_, *paths, environment, now, stdout, stderr);
  }

 private:
  CLI::App* tokens_ = nullptr;
  CLI::App* limits_ = nullptr;
  TokensRequest tokensRequest_;
  LimitsRequest limitsRequest_;
};

}  // namespace omnira::cli
