#include "cli/Actions.h"

#include <fmt/format.h>
#include <unistd.h>

#include <ctime>

#include "OmniraCore/bridge/ActionLog.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

std::string outcomeText(const ActionRecord& r) {
  switch (r.outcome) {
    case ActionRecord::Outcome::quit: return r.forced ? "force quit" : "quit";
    case ActionRecord::Outcome::declined: return "you said no";
    case ActionRecord::Outcome::unanswered: return "no answer";
    case ActionRecord::Outcome::refused: return "refused";
  }
  return "refused";
}

}  // namespace

int runActions(const ActionsRequest& request, const AppPaths& paths, std::FILE* out, std::FILE* err) {
  const ActionLog log(paths.dataFile("requests.json"));
  auto read = log.read();
  if (!read) {
    fmt::print(err, "omnira: {}\n", read.error().message);
    return 1;
  }
  if (read->setAside) fmt::print(err, "omnira: {}\n", *read->setAside);
  const auto& records = read->records;

  if (request.clear) {
    if (records.empty()) {
      fmt::print(out, "The log of quit requests is empty.\n");
      return 0;
    }
    if (!request.yes) {
      if (!::isatty(STDIN_FILENO)) {
        fmt::print(err, "omnira: not clearing without a terminal to confirm on; add --yes to clear anyway.\n");
        return 1;
      }
      if (!confirmed(fmt::format("Clear the log of {} quit request{}? You can’t undo this.", records.size(),
                                 records.size() == 1 ? "" : "s"),
                     out)) {
        fmt::print(out, "Nothing was cleared.\n");
        return 0;
      }
    }
    if (auto cleared = log.clear(); !cleared) {
      fmt::print(err, "omnira: {}\n", cleared.error().message);
      return 1;
    }
    fmt::print(out, "Cleared {} quit request{}.\n", records.size(), records.size() == 1 ? "" : "s");
    return 0;
  }

  if (request.json) {
    auto list = nlohmann::ordered_json::array();
    for (auto it = records.rbegin(); it != records.rend(); ++it) list.push_back(it->toJSON());
    fmt::print(out, "{}\n", jsonText(nlohmann::ordered_json{{"records", std::move(list)}}, 2));
    return 0;
  }
  if (records.empty()) {
    fmt::print(out, "No agent has asked to quit anything yet.\n");
    return 0;
  }
  // Newest first: what a person looks for is what just happened.
  fmt::print(out, "{:<16}  {:<16} {:<30} {:<9}  {}\n", "WHEN", "ASKED BY", "TARGET", "VERDICT", "OUTCOME");
  for (auto it = records.rbegin(); it != records.rend(); ++it) {
    const auto& r = *it;
    fmt::print(out, "{:<16}  {:<16} {:<30} {:<9}  {}\n", formatLocal(r.date, "%Y-%m-%d %H:%M"), fit(terminalText(r.asker), 16),
               fit(terminalText(r.target), 30), terminalText(r.verdict), outcomeText(r));
    if (r.detail && r.detail->reason && !r.detail->reason->empty())
      fmt::print(out, "{:<18}{}\n", "", terminalText(*r.detail->reason));
  }
  return 0;
}

}  // namespace omnira::cli
