#include "OmniraCore/bridge/ActionLog.h"

#include <fmt/format.h>

#include <cstdio>

#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/FileLock.h"
#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

namespace {

Result<void, ActionLog::Failure> save(const std::filesystem::path& file, const std::vector<ActionRecord>& records) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& r : records) list.push_back(r.toJSON());
  if (auto written = AtomicFile::write(file, jsonText(list, 2) + "\n", 0600); !written)
    return fail(ActionLog::Failure{written.error().message});
  return {};
}

}  // namespace

Result<ActionLog::Read, ActionLog::Failure> ActionLog::load() const {
  Read read;
  auto text = AtomicFile::read(file_);
  if (!text) {
    if (text.error().missing) return read;
    return fail(Failure{text.error().message});
  }
  std::string problem;
  const auto parsed = nlohmann::ordered_json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (!parsed.is_array()) problem = "it is not a JSON list";
  for (size_t i = 0; problem.empty() && i < parsed.size(); ++i) {
    auto record = ActionRecord::fromJSON(parsed[i]);
    if (!record) problem = fmt::format("record {}: {}", i + 1, record.error().message);
    else read.records.push_back(std::move(*record));
  }
  if (problem.empty()) return read;
  // Set aside before anything is written in its place: the person may want it back.
  const auto stamp = formatISO8601(std::chrono::system_clock::now());
  auto aside = file_;
  aside += ".unreadable-" + stamp;
  if (std::rename(file_.c_str(), aside.c_str()) != 0)
    return fail(Failure{fmt::format("{} cannot be read ({}) and cannot be moved aside.", file_.string(), problem)});
  read.records.clear();
  read.setAside = fmt::format("{} could not be read ({}); it was moved to {} and the log starts empty.", file_.string(),
                              problem, aside.string());
  spdlog::warn("{}", *read.setAside);
  return read;
}

Result<ActionLog::Read, ActionLog::Failure> ActionLog::read() const {
  FileLock lock(file_);
  if (!lock.failure().empty()) return fail(Failure{lock.failure()});
  return load();
}

Result<ActionLog::Read, ActionLog::Failure> ActionLog::add(const ActionRecord& record, Date now) const {
  FileLock lock(file_);
  if (!lock.failure().empty()) return fail(Failure{lock.failure()});
  auto read = load();
  if (!read) return read;
  read->records.push_back(record);
  read->records = ActionRecord::pruned(std::move(read->records), now);
  if (auto saved = save(file_, read->records); !saved) return fail(saved.error());
  return read;
}

Result<void, ActionLog::Failure> ActionLog::clear() const {
  FileLock lock(file_);
  if (!lock.failure().empty()) return fail(Failure{lock.failure()});
  return save(file_, {});
}

}  // namespace omnira
