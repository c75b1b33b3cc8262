#include "OmniraCore/bridge/ActionLog.h"

#include <fmt/format.h>

#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/FileLock.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SavedFile.h"

namespace omnira {

namespace {

Result<void, ActionLog::Failure> save(const std::filesystem::path& file, const std::vector<ActionRecord>& records) {
  if (!SavedFile::mayReplace(file, std::chrono::system_clock::now()))
    return fail(ActionLog::Failure{fmt::format("{} is left as it is and the log was not saved.", file.string())});
  auto list = nlohmann::ordered_json::array();
  for (const auto& r : records) list.push_back(r.toJSON());
  if (auto written = AtomicFile::write(file, jsonText(list, 2) + "\n", 0600); !written)
    return fail(ActionLog::Failure{written.error().message});
  return {};
}

}  // namespace

Result<ActionLog::Read, ActionLog::Failure> ActionLog::load() const {
  Read read;
  auto text = SavedFile::read(file_);
  if (!text) return fail(Failure{text.error()});
  if (!*text) return read;
  const Date now = std::chrono::system_clock::now();
  auto parsed = parseOrderedJSONText(**text);
  std::string problem = parsed ? std::string() : parsed.error().message;
  if (parsed && !parsed->is_array()) problem = "is not a JSON list";
  if (!problem.empty()) {
    // Set aside before anything is written in its place: the person may want it back.
    read.setAside = SavedFile::discard(file_, problem, now) + " The log starts empty.";
    spdlog::warn("{}", *read.setAside);
    return read;
  }
  size_t dropped = 0;
  std::string first;
  for (size_t i = 0; i < parsed->size(); ++i) {
    auto record = ActionRecord::fromJSON((*parsed)[i]);
    if (record) {
      read.records.push_back(std::move(*record));
    } else if (dropped++ == 0) {
      first = fmt::format("record {}: {}", i + 1, record.error().message);
    }
  }
  SavedFile::foundDropping(file_, dropped, "records", first);
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
