#include "OmniraCore/foundation/SavedFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

namespace omnira::SavedFile {

namespace fs = std::filesystem;

namespace {

struct Entry {
  Found what = Found::whole;
  bool refusalLogged = false;
};

std::mutex tableMutex;
std::map<fs::path, Entry>& table() {
  static std::map<fs::path, Entry> entries;
  return entries;
}

// Enough for a file that went bad every few minutes all day.
constexpr int kMaxAsides = 1000;

}  // namespace

void found(const fs::path& file, Found what, std::string_view why) {
  {
    std::lock_guard lock(tableMutex);
    if (what == Found::whole) table().erase(file);
    else table()[file] = Entry{what, false};
  }
  if (what == Found::someDropped)
    spdlog::warn("{}: {}; the file is kept beside itself as {}.bad-<date> before it is next saved.", file.string(), why,
                 file.filename().string());
}

Result<std::optional<std::string>, std::string> read(const fs::path& file) {
  auto text = AtomicFile::read(file);
  if (text) return std::optional<std::string>(std::move(*text));
  if (text.error().missing) {
    found(file, Found::whole);
    return std::optional<std::string>();
  }
  return fail(unreadable(file, text.error().message));
}

void foundDropping(const fs::path& file, size_t dropped, std::string_view entries, std::string_view first) {
  if (dropped == 0) return found(file, Found::whole);
  found(file, Found::someDropped,
        first.empty() ? fmt::format("{} left out as they could not be read: {}", entries, dropped)
                      : fmt::format("{} left out as they could not be read: {} (first: {})", entries, dropped, first));
}

bool mayReplace(const fs::path& file, Date now) {
  std::lock_guard lock(tableMutex);
  auto it = table().find(file);
  if (it == table().end()) return true;
  Entry& entry = it->second;
  std::error_code error;
  if (!fs::exists(fs::symlink_status(file, error))) {
    table().erase(it);  // gone since: nothing left to lose
    return true;
  }
  if (entry.what == Found::unreadable) {
    if (!entry.refusalLogged)
      spdlog::warn("{} is not saved: it could not be read and is left as it is.", file.string());
    entry.refusalLogged = true;
    return false;
  }
  auto aside = setAside(file, now, /*keepOriginal=*/true);
  if (!aside) {
    if (!entry.refusalLogged)
      spdlog::warn("{} is not saved: a copy of it could not be kept first ({}).", file.string(), aside.error());
    entry.refusalLogged = true;
    return false;
  }
  spdlog::warn("Kept {} as {} before saving over it.", file.string(), aside->string());
  table().erase(it);
  return true;
}

Result<fs::path, std::string> setAside(const fs::path& file, Date now, bool keepOriginal) {
  const std::string base = file.string() + ".bad-" + formatLocal(now, "%Y-%m-%d");
  for (int n = 1; n <= kMaxAsides; ++n) {
    const std::string aside = n == 1 ? base : fmt::format("{}-{}", base, n);
    // Both refuse to replace an earlier aside: that one may hold the only copy of something.
    int done = keepOriginal ? ::link(file.c_str(), aside.c_str())
                            : ::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE);
    if (done != 0 && keepOriginal && errno != EEXIST && errno != ENOENT) {
      // No hard links here (some file systems): moving it serves as well, the save that
      // follows writes the file anew.
      done = ::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE);
    }
    if (done == 0) return fs::path(aside);
    if (errno != EEXIST) return fail(std::string(std::strerror(errno)));
  }
  return fail(fmt::format("{} earlier copies are in the way", kMaxAsides));
}

std::string discard(const fs::path& file, std::string_view problem, Date now) {
  auto aside = setAside(file, now);
  if (!aside) {
    {
      std::lock_guard lock(tableMutex);
      table()[file] = Entry{Found::unreadable, false};
    }
    return fmt::format("{} {} and could not be moved aside ({}); it is left as it is and not saved over.",
                       file.string(), problem, aside.error());
  }
  found(file, Found::whole);
  return fmt::format("{} {}; it was moved to {}.", file.string(), problem, aside->string());
}

std::string unreadable(const fs::path& file, std::string_view reason) {
  found(file, Found::unreadable);
  return fmt::format("{}; it is left as it is and not saved over until it can be read.", reason);
}

}  // namespace omnira::SavedFile
