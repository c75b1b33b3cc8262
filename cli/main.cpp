// The omnira command. Starts fast and never loads the application's GUI libraries.

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <cstdio>

#include "OmniraCore/foundation/Log.h"
#include "cli/Snapshot.h"

namespace {

// Usage mistakes exit with 2, as shells and scripts expect.
constexpr int kUsageError = 2;

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Omnira: an activity monitor that thinks in apps and projects, not processes."};
  app.set_version_flag("-V,--version", std::string("omnira ") + OMNIRA_VERSION);
  app.require_subcommand(1);
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Log what happens to standard error");

  auto* snapshot = app.add_subcommand("snapshot", "Show the machine and its apps at a glance");
  bool json = false, all = false;
  size_t top = 15;
  snapshot->add_flag("--json", json, "Print JSON: the system sample and every group with its processes");
  snapshot->add_flag("-a,--all", all, "List every group, not only the top ones");
  snapshot->add_option("-n,--top", top, "How many apps to list")->check(CLI::Range(1, 100000));

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    fmt::print(stderr, "omnira: {}\nRun 'omnira --help' for the commands and options.\n", e.what());
    return kUsageError;
  }

  omnira::setUpLogging("omnira", verbose ? spdlog::level::debug : spdlog::level::warn,
                       omnira::LogTarget::standardError);

  if (snapshot->parsed()) {
    const auto snap = omnira::cli::takeSnapshot();
    if (json) {
      fmt::print("{}\n", omnira::cli::snapshotJSON(snap).dump(2));
    } else {
      fmt::print("{}", omnira::cli::snapshotText(snap, all ? snap.groups.size() : top));
    }
  }
  return 0;
}
