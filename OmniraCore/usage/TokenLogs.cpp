#include "OmniraCore/usage/TokenLogs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include <spdlog/spdlog.h>

#include "OmniraCore/usage/UsageLogins.h"
#include "OmniraCore/usage/UsageText.h"

namespace omnira {

namespace {

constexpr std::string_view assistantKey = "\"type\":\"assistant\"";
constexpr std::string_view usageKey = "\"usage\":{";
constexpr std::string_view messageKey = "\"message\":{";
constexpr std::string_view requestIDKey = "\"requestId\":\"";
constexpr std::string_view timestampKey = "\"timestamp\":\"";
constexpr std::string_view modelKey = "\"model\":\"";
constexpr std::string_view syntheticModel = "<synthetic>";
// The usage object sits just before the line's own "type"; look there first.
constexpr ptrdiff_t usageWindow = 4096;

const char* find(const char* from, const char* to, std::string_view needle) {
  if (from >= to || static_cast<size_t>(to - from) < needle.size()) return nullptr;
  return static_cast<const char*>(::memmem(from, static_cast<size_t>(to - from), needle.data(), needle.size()));
}

const char* findLast(const char* from, const char* to, std::string_view needle) {
  const char* last = nullptr;
  for (const char* at = find(from, to, needle); at; at = find(at + 1, to, needle)) last = at;
  return last;
}

// The text between the key (which ends in a quote) and the next quote; empty without either.
std::string_view quotedAfter(const char* key, size_t keySize, const char* to) {
  if (!key) return {};
  const char* text = key + keySize;
  if (text >= to) return {};
  const auto* quote = static_cast<const char*>(std::memchr(text, '"', static_cast<size_t>(to - text)));
  if (!quote) return {};
  return {text, static_cast<size_t>(quote - text)};
}

// The run of digits after the first `key` in [from, to); 0 when the key or the digits are
// missing. False only when the digits do not fit.
bool countAfter(const char* from, const char* to, std::string_view key, int64_t& out, bool* present = nullptr) {
  out = 0;
  const char* at = find(from, to, key);
  if (!at) return true;
  if (present) *present = true;
  const char* digits = at + key.size();
  const char* end = digits;
  while (end < to && *end >= '0' && *end <= '9') ++end;
  if (end == digits) return true;
  auto [ptr, ec] = std::from_chars(digits, end, out);
  return ec == std::errc() && ptr == end;
}

// Just past the brace that closes the object opening at `open`; strings are stepped over.
const char* objectEnd(const char* open, const char* to) {
  int depth = 0;
  bool inString = false;
  for (const char* p = open; p < to; ++p) {
    const char c = *p;
    if (inString) {
      if (c == '\\') ++p;
      else if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '{') {
      ++depth;
    } else if (c == '}' && --depth == 0) {
      return p + 1;
    }
  }
  return to;
}

// Just past the quote that closes the string opening at `quote`; null when it does not close.
const char* stringEnd(const char* quote, const char* to) {
  for (const char* p = quote + 1; p < to; ++p) {
    if (*p == '\\') ++p;
    else if (*p == '"') return p + 1;
  }
  return nullptr;
}

// Just past the bracket that closes the object or array opening at `open`; null when it
// does not close.
const char* containerEnd(const char* open, const char* to) {
  int depth = 0;
  for (const char* p = open; p < to; ++p) {
    const char c = *p;
    if (c == '"') {
      p = stringEnd(p, to);
      if (!p) return nullptr;
      --p;
    } else if (c == '{' || c == '[') {
      ++depth;
    } else if ((c == '}' || c == ']') && --depth == 0) {
      return p + 1;
    }
  }
  return nullptr;
}

const char* skipSpace(const char* p, const char* to) {
  while (p < to && (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')) ++p;
  return p;
}

struct MessageFields {
  std::string_view id;
  std::string_view model;
};

// The message's own "id" and "model", wherever they stand among its members: Claude Code
// 1.x writes the id first, 2.x the model first. The members' values are stepped over, so
// a content block's "id" or a task's "model" is never taken. Both come before the content
// in every layout seen, so the walk rarely goes far.
MessageFields messageFields(const char* open, const char* to) {
  MessageFields fields;
  const char* p = open + 1;
  while (true) {
    p = skipSpace(p, to);
    if (p >= to || *p != '"') return fields;
    const char* keyEnd = stringEnd(p, to);
    if (!keyEnd) return fields;
    const std::string_view key(p + 1, static_cast<size_t>(keyEnd - p - 2));
    p = skipSpace(keyEnd, to);
    if (p >= to || *p != ':') return fields;
    p = skipSpace(p + 1, to);
    if (p >= to) return fields;
    if (*p == '"') {
      const char* valueEnd = stringEnd(p, to);
      if (!valueEnd) return fields;
      const std::string_view value(p + 1, static_cast<size_t>(valueEnd - p - 2));
      if (key == "id" && fields.id.empty()) fields.id = value;
      else if (key == "model" && fields.model.empty()) fields.model = value;
      if (!fields.id.empty() && !fields.model.empty()) return fields;
      p = valueEnd;
    } else if (*p == '{' || *p == '[') {
      p = containerEnd(p, to);
      if (!p) return fields;
    } else {
      while (p < to && *p != ',' && *p != '}') ++p;
    }
    p = skipSpace(p, to);
    if (p >= to || *p != ',') return fields;
    ++p;
  }
}

// A reply's key: the message id and the request id, or the message id alone where a line
// has no request id (sub-agents, other endpoints). Made UTF-8, as everything kept is.
void appendKey(std::string& key, std::string_view message, std::string_view request) {
  usage_text::appendValid(key, message);
  if (!request.empty()) {
    key += ':';
    usage_text::appendValid(key, request);
  }
}

// Reads a Claude Code line whose own `"type":"assistant"` stands at `hit`.
TokenLogs::ClaudeLine scanClaudeLine(const char* begin, const char* end, const char* hit) {
  using Line = TokenLogs::ClaudeLine;
  Line line;
  line.kind = Line::Kind::counted;

  const char* usageAt = findLast(hit - begin > usageWindow ? hit - usageWindow : begin, hit, usageKey);
  if (!usageAt) usageAt = findLast(begin, hit, usageKey);
  if (!usageAt) usageAt = find(hit, end, usageKey);
  const char* from = begin;
  const char* to = end;
  if (usageAt) {
    from = usageAt;
    to = objectEnd(usageAt + usageKey.size() - 1, end);
  }
  TokenUsage& usage = line.usage;
  int64_t fiveMinutes = 0, oneHour = 0;
  bool hasCacheWrite = false, hasSplit = false;
  if (!countAfter(from, to, "\"input_tokens\":", usage.input) ||
      !countAfter(from, to, "\"output_tokens\":", usage.output) ||
      !countAfter(from, to, "\"cache_read_input_tokens\":", usage.cacheRead) ||
      !countAfter(from, to, "\"cache_creation_input_tokens\":", usage.cacheWrite, &hasCacheWrite) ||
      !countAfter(from, to, "\"ephemeral_5m_input_tokens\":", fiveMinutes, &hasSplit) ||
      !countAfter(from, to, "\"ephemeral_1h_input_tokens\":", oneHour, &hasSplit)) {
    line.kind = Line::Kind::unknown;
    return line;
  }
  // The reply's own count of cache writes; its split by lifetime only stands in for it.
  if (!hasCacheWrite && hasSplit) usage.cacheWrite = TokenUsage::sum(fiveMinutes, oneHour);

  if (const char* messageAt = find(begin, end, messageKey)) {
    const MessageFields fields = messageFields(messageAt + messageKey.size() - 1, end);
    line.messageID = fields.id;
    line.model = fields.model;
  }
  const char* requestAt = find(usageAt ? to : begin, end, requestIDKey);
  if (!requestAt && usageAt) requestAt = find(begin, end, requestIDKey);
  line.requestID = quotedAfter(requestAt, requestIDKey.size(), end);
  if (line.model == syntheticModel) {
    line.kind = Line::Kind::skip;
    return line;
  }

  const char* timestampAt = find(hit, end, timestampKey);
  if (!timestampAt) timestampAt = find(begin, hit, timestampKey);
  auto timestamp = parseISO8601(quotedAfter(timestampAt, timestampKey.size(), end));
  if (!timestamp) {
    line.kind = Line::Kind::unknown;
    return line;
  }
  line.timestamp = *timestamp;
  return line;
}

// Day keys of the moments read, remembering the last day's bounds: lines come in time
// order, so most need no calendar work.
class DayKeys {
 public:
  explicit DayKeys(const DayCalendar& calendar) : calendar_(calendar) {}

  std::string_view of(Date date) {
    if (date >= start_ && date < end_) return key_;
    const auto civil = calendar_.civilDay(date);
    key_ = DayCalendar::key(civil);
    start_ = calendar_.startOfDay(civil);
    end_ = calendar_.startOfDay(DayCalendar::adding(civil, 1));
    if (!(date >= start_ && date < end_)) {
      start_ = Date::max();
      end_ = Date::min();
    }
    return key_;
  }

 private:
  const DayCalendar& calendar_;
  Date start_ = Date::max();
  Date end_ = Date::min();
  std::string key_;
};

// The read buffer: one chunk, taken when the first file is read (a refresh with nothing
// new needs none), grown only while a single line is longer than what it holds.
class Buffer {
 public:
  char* data() { return data_.get(); }
  size_t size() const { return size_; }
  void grow() { resize(size_ + TokenLogs::chunkSize); }
  void shrink() {
    if (size_ > TokenLogs::chunkSize) {
      data_.reset();
      size_ = 0;
      resize(TokenLogs::chunkSize);
    }
  }

 private:
  void resize(size_t size) {
    std::unique_ptr<char[]> bigger(new char[size]);
    if (data_) std::memcpy(bigger.get(), data_.get(), size_);
    data_ = std::move(bigger);
    size_ = size;
  }
  std::unique_ptr<char[]> data_;
  size_t size_ = 0;
};

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// A log file found in the walk; its path is kept beside it, in the update's `seen`.
struct Candidate {
  uint64_t size = 0;
  Date modified{};
};

Date modificationDate(const struct stat& st) {
  return Date(std::chrono::duration_cast<Date::duration>(std::chrono::seconds(st.st_mtim.tv_sec) +
                                                         std::chrono::nanoseconds(st.st_mtim.tv_nsec)));
}

bool isLogName(const char* name) {
  const size_t length = std::strlen(name);
  return length >= 6 && std::memcmp(name + length - 6, ".jsonl", 6) == 0;
}

// What a walk found: the log files' paths and, at the same index, their sizes and dates.
struct Found {
  std::vector<std::string> paths;
  std::vector<Candidate> candidates;

  void append(Found&& other) {
    paths.insert(paths.end(), std::make_move_iterator(other.paths.begin()), std::make_move_iterator(other.paths.end()));
    candidates.insert(candidates.end(), other.candidates.begin(), other.candidates.end());
  }
};

constexpr int deepestFolder = 32;

// Every regular "*.jsonl" file under the folder; symbolic links to files are followed,
// to folders not (no loops). Only log files are looked at: the kind of the others comes
// from the listing, when the file system gives it. With `later`, subfolders are not
// entered but their paths left there.
void walk(int parent, const char* name, std::string& path, int depth, Found& found,
          std::vector<std::string>* later = nullptr) {
  if (depth > deepestFolder) return;
  const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  DIR* dir = ::fdopendir(fd);
  if (!dir) {
    ::close(fd);
    return;
  }
  const size_t base = path.size();
  const auto walkInto = [&](const char* folder) {
    path.resize(base);
    path += '/';
    path += folder;
    if (later) later->push_back(path);
    else walk(fd, folder, path, depth + 1, found);
  };
  while (const dirent* entry = ::readdir(dir)) {
    const char* entryName = entry->d_name;
    if (entryName[0] == '.' && (entryName[1] == 0 || (entryName[1] == '.' && entryName[2] == 0))) continue;
    const unsigned char type = entry->d_type;
    if (type == DT_DIR) {
      walkInto(entryName);
      continue;
    }
    if (type != DT_REG && type != DT_LNK && type != DT_UNKNOWN) continue;
    const bool logName = isLogName(entryName);
    struct stat st;
    if (type == DT_UNKNOWN) {
      // The entry itself first, so that a link to a folder is not taken for one.
      if (::fstatat(fd, entryName, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      if (S_ISDIR(st.st_mode)) {
        walkInto(entryName);
        continue;
      }
      if (!logName || (S_ISLNK(st.st_mode) && ::fstatat(fd, entryName, &st, 0) != 0)) continue;
    } else if (!logName || ::fstatat(fd, entryName, &st, 0) != 0) {
      continue;
    }
    if (!S_ISREG(st.st_mode)) continue;
    auto& file = found.paths.emplace_back();
    file.reserve(base + 1 + std::strlen(entryName));
    file.append(path, 0, base);
    file += '/';
    file += entryName;
    found.candidates.push_back({static_cast<uint64_t>(st.st_size), modificationDate(st)});
  }
  path.resize(base);
  ::closedir(dir);
}

bool isWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) &&
         (path.size() == folder.size() || folder.back() == '/' || path[folder.size()] == '/');
}

// The folders to walk, each real folder once: a folder that is, or lies inside, one listed
// before it (through a link such as ~/.config/claude → ~/.claude) would give the same logs
// twice. The walk follows no links to folders, so a folder's real path says which logs it
// gives. Each keeps the path it was given; one that does not exist is left out.
std::vector<std::string> distinctFolders(const std::vector<std::filesystem::path>& roots) {
  std::vector<std::string> folders, real;
  for (const auto& root : roots) {
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(root.c_str(), nullptr), &std::free);
    if (!resolved) continue;
    const std::string_view resolvedPath(resolved.get());
    bool covered = false;
    for (size_t i = 0; i < real.size() && !covered;) {
      if (isWithin(resolvedPath, real[i])) {
        covered = true;
      } else if (isWithin(real[i], resolvedPath)) {  // the new one holds an earlier one
        real.erase(real.begin() + static_cast<ptrdiff_t>(i));
        folders.erase(folders.begin() + static_cast<ptrdiff_t>(i));
      } else {
        ++i;
      }
    }
    if (covered) continue;
    std::string path = root.string();
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    folders.push_back(std::move(path));
    real.emplace_back(resolvedPath);
  }
  return folders;
}

// Walks the folders with a few threads. Nearly all of a refresh with nothing new is the
// kernel's time in one stat per log file, and stats in different folders do not wait on
// each other. The top levels are listed first, until there are enough folders to share;
// the threads then take those folders in turn, each into its own slot, and the slots are
// joined in order, so every walk of the same folders lists the files in the same order.
Found walkShared(const std::vector<std::filesystem::path>& roots) {
  constexpr size_t enoughFolders = 16;
  Found found;
  std::vector<std::string> folders = distinctFolders(roots);
  int depth = 0;
  while (!folders.empty() && folders.size() < enoughFolders && depth < deepestFolder) {
    std::vector<std::string> next;
    for (auto& folder : folders) walk(AT_FDCWD, folder.c_str(), folder, depth, found, &next);
    folders = std::move(next);
    ++depth;
  }
  if (folders.empty()) return found;

  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  const size_t threads = std::min<size_t>({cores, 4, folders.size()});
  std::vector<Found> slots(folders.size());
  std::atomic<size_t> nextFolder{0};
  // Each thread writes only the slots whose folders it took; the slots are read after the join.
  const auto work = [&] {
    for (size_t i = nextFolder++; i < folders.size(); i = nextFolder++)
      walk(AT_FDCWD, folders[i].c_str(), folders[i], depth, slots[i]);
  };
  std::vector<std::thread> helpers;
  for (size_t t = 1; t < threads; ++t) {
    try {
      helpers.emplace_back(work);
    } catch (const std::system_error& error) {
      spdlog::debug("Token logs: walking on one thread, no other could start: {}", error.what());
      break;  // without threads to spare, this thread walks them all
    }
  }
  work();
  for (auto& helper : helpers) helper.join();
  for (auto& slot : slots) found.append(std::move(slot));
  return found;
}

// The ledger's table of files is kept at most half full; see updateFolders.
constexpr float sparseLoad = 0.5f;

// Calls `visit(i, entry)` with the ledger's entry for each path `which[i]` picks, null where
// a file has none. The ledger's nodes lie scattered in memory and one lookup is a chain of
// cache misses, so the first loads of a batch of lookups are all started before any key is
// compared, and each entry is handed on while it is still in the cache.
template <typename Visit>
void visitEntries(TokenLedger::Files& files, const std::vector<std::string>& paths, const std::vector<size_t>& which,
                  Visit&& visit) {
  if (files.empty()) {
    for (size_t i = 0; i < which.size(); ++i) visit(i, nullptr);
    return;
  }
  std::vector<size_t> buckets(which.size());
  for (size_t i = 0; i < which.size(); ++i) buckets[i] = files.bucket(paths[which[i]]);
  constexpr size_t batch = 16;
  TokenLedger::Files::local_iterator heads[batch];
  for (size_t first = 0; first < which.size(); first += batch) {
    const size_t count = std::min(batch, which.size() - first);
    for (size_t j = 0; j < count; ++j) heads[j] = files.begin(buckets[first + j]);
    for (size_t j = 0; j < count; ++j) {
      if (heads[j] == files.end(buckets[first + j])) continue;
      __builtin_prefetch(heads[j]->first.data());
      __builtin_prefetch(&heads[j]->second.size);  // it may lie on the node's second line
    }
    for (size_t j = 0; j < count; ++j) {
      const size_t i = first + j;
      TokenFileLedger* entry = nullptr;
      if (heads[j] != files.end(buckets[i])) {  // else an empty bucket: no entry
        const std::string& path = paths[which[i]];
        if (heads[j]->first == path) entry = &heads[j]->second;
        else if (auto known = files.find(path); known != files.end()) entry = &known->second;
      }
      visit(i, entry);
    }
  }
}

std::string_view fileName(std::string_view path) {
  const size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// A log moved to another folder (Codex archives a finished session) keeps its name: the
// entry of a file that the walk no longer sees goes to a new file of the same name that
// is at least as large, and reading goes on where it stopped. A name that two such
// entries share tells nothing. Gives the number of entries moved; a file moved with
// nothing new leaves `toRead`.
size_t adoptMoved(TokenLedger::Files& files, const std::vector<std::string>& paths,
                  const std::vector<Candidate>& candidates, const std::vector<size_t>& newcomers,
                  std::vector<size_t>& toRead) {
  const std::unordered_set<std::string_view> seen(paths.begin(), paths.end());
  // By file name, the path of an entry whose file is gone; null where two share the name.
  // Paths, not iterators: moving an entry may rehash the table, but keeps its nodes.
  std::unordered_map<std::string_view, const std::string*> gone;
  for (const auto& [path, entry] : files) {
    if (seen.count(path)) continue;
    auto [known, added] = gone.try_emplace(fileName(path), &path);
    if (!added) known->second = nullptr;
  }
  size_t moved = 0;
  std::unordered_set<size_t> whole;
  for (const size_t i : newcomers) {
    if (gone.empty()) break;
    auto match = gone.find(fileName(paths[i]));
    if (match == gone.end() || !match->second) continue;
    auto entry = files.find(*match->second);
    if (entry == files.end() || candidates[i].size < entry->second.size) continue;
    gone.erase(match);
    if (candidates[i].size == entry->second.size) whole.insert(i);
    auto node = files.extract(entry);
    node.key() = paths[i];
    files.insert(std::move(node));
    ++moved;
  }
  if (!whole.empty()) std::erase_if(toRead, [&](size_t i) { return whole.count(i) > 0; });
  return moved;
}

class Reader {
 public:
  Reader(TokenLedger::Files& files, TokenLedger::Index& index, bool& indexed, UsageTool tool,
         const DayCalendar& calendar)
      : files_(files), index_(index), indexed_(indexed), tool_(tool), days_(calendar) {}

  // Reads what is new in one file into its entry; `size` is the size just seen. True when
  // the file had no entry before.
  bool read(const std::string& path, uint64_t size, TokenLogs::Update& update) {
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return false;
    auto [it, inserted] = files_.try_emplace(path);
    TokenFileLedger& entry = it->second;
    bool restart = size < entry.size;
    if (!restart && entry.offset > 0) {
      char before = 0;
      restart = ::pread(fd.get(), &before, 1, static_cast<off_t>(entry.offset - 1)) != 1 || before != '\n';
    }
    if (restart) {
      Orphans orphans = forget(entry);
      entry = TokenFileLedger{};
      handOver(orphans);
    }
    ::posix_fadvise(fd.get(), static_cast<off_t>(entry.offset), 0, POSIX_FADV_SEQUENTIAL);
    ++update.filesRead;

    uint64_t start = entry.offset;  // where the line being read begins
    uint64_t position = start;      // the file position of buffer_[0]
    size_t filled = 0;
    // Within a line past longestLine: its bytes are dropped as they come, up to its newline.
    bool passing = false;
    while (true) {
      if (filled == buffer_.size()) {
        if (buffer_.size() < TokenLogs::longestLine) {
          buffer_.grow();
        } else {
          passing = true;
          position += filled;
          filled = 0;
        }
      }
      const ssize_t n = ::pread(fd.get(), buffer_.data() + filled, buffer_.size() - filled,
                                static_cast<off_t>(position + filled));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      update.bytesRead += static_cast<uint64_t>(n);
      size_t before = filled;
      filled += static_cast<size_t>(n);
      if (passing) {
        const auto* end = static_cast<const char*>(std::memchr(buffer_.data() + before, '\n', filled - before));
        if (end) {
          const size_t past = static_cast<size_t>(end - buffer_.data()) + 1;
          position += past;
          start = position;
          filled -= past;
          if (filled) std::memmove(buffer_.data(), buffer_.data() + past, filled);
          passing = false;
          before = 0;
        }
      }
      const auto* newline = passing ? nullptr
                                    : static_cast<const char*>(::memrchr(buffer_.data() + before, '\n', filled - before));
      if (newline) {
        const size_t whole = static_cast<size_t>(newline - buffer_.data()) + 1;
        lines(buffer_.data(), buffer_.data() + whole, entry);
        position += whole;
        start = position;
        filled -= whole;
        if (filled) std::memmove(buffer_.data(), buffer_.data() + whole, filled);
      }
      // The size just seen is the end of this pass; what is written meanwhile is the next one's.
      if (position + filled >= size) break;
    }
    // An over-long line not yet ended is read again from its start once the file grows;
    // the size reached keeps an unchanged file from being read again at all.
    entry.offset = start;
    entry.size = position + filled;
    buffer_.shrink();
    return inserted;
  }

  // Whole lines already in memory, booked into the entry of `path`.
  void take(const std::string& path, std::string_view text) {
    if (text.empty()) return;  // memrchr wants a pointer even for no bytes
    const auto* newline = static_cast<const char*>(::memrchr(text.data(), '\n', text.size()));
    if (newline) lines(text.data(), newline + 1, files_[path]);
  }

  using Orphans = std::unordered_set<std::string>;

  // Drops the entry's replies from the ledger's index before the entry is cleared or
  // erased, and gives their keys back: handOver books them where a copy of them is.
  Orphans forget(const TokenFileLedger& entry) {
    Orphans orphans;
    for (const auto& [key, booked] : entry.counted) {
      orphans.insert(key);
      if (!indexed_) continue;
      auto found = index_.find(std::string_view(key));
      if (found != index_.end() && found->second == &entry) index_.erase(found);
    }
    return orphans;
  }

  // Replies whose file lost them are booked in a file that holds a copy, with the copy's
  // figures, so that a reply outlives the file that first had it.
  void handOver(Orphans& orphans) {
    for (auto& [path, file] : files_) {
      if (orphans.empty()) return;
      for (auto copy = file.copies.begin(); copy != file.copies.end();) {
        auto orphan = orphans.find(copy->first);
        if (orphan == orphans.end()) {
          ++copy;
          continue;
        }
        orphans.erase(orphan);
        auto node = file.copies.extract(copy++);
        if (file.counted.contains(node.key())) continue;
        const TokenFileLedger::Booked& booked = node.mapped();
        file.add(booked.usage, booked.model, booked.day);
        auto inserted = file.counted.insert(std::move(node));
        if (indexed_) index_.emplace(std::string_view(inserted.position->first), &file);
      }
    }
  }

  DayKeys& days() { return days_; }

 private:
  void lines(const char* begin, const char* end, TokenFileLedger& entry) {
    if (tool_ == UsageTool::claude) claudeLines(begin, end, entry);
    else codexLines(begin, end, entry);
  }

  void claudeLines(const char* begin, const char* end, TokenFileLedger& entry) {
    const char* p = begin;
    while (const char* hit = find(p, end, assistantKey)) {
      const auto* lineEnd = static_cast<const char*>(std::memchr(hit, '\n', static_cast<size_t>(end - hit)));
      if (!lineEnd) lineEnd = end;
      const auto* newline = static_cast<const char*>(::memrchr(p, '\n', static_cast<size_t>(hit - p)));
      const char* lineStart = newline ? newline + 1 : p;
      // The line's own type comes last; an earlier one belongs to something it quotes.
      for (const char* again = find(hit + 1, lineEnd, assistantKey); again; again = find(again + 1, lineEnd, assistantKey))
        hit = again;
      book(scanClaudeLine(lineStart, lineEnd, hit), entry);
      p = lineEnd + 1;
      if (p >= end) break;
    }
  }

  void book(const TokenLogs::ClaudeLine& line, TokenFileLedger& entry) {
    if (line.kind != TokenLogs::ClaudeLine::Kind::counted) return;
    const std::string_view day = days_.of(line.timestamp);
    std::string_view model = line.model.empty() ? TokenLogs::unknownModel : line.model;
    if (!usage_text::isUTF8(model)) {
      model_ = usage_text::valid(model);
      model = model_;
    }
    if (!line.hasKey()) {
      entry.add(line.usage, model, day);
      return;
    }
    key_.clear();
    appendKey(key_, line.messageID, line.requestID);
    index();
    auto found = index_.find(std::string_view(key_));
    if (found == index_.end()) {
      entry.add(line.usage, model, day);
      auto [counted, inserted] = entry.counted.try_emplace(key_, TokenFileLedger::Booked{line.usage, std::string(day), std::string(model)});
      index_.emplace(std::string_view(counted->first), &entry);
      return;
    }
    TokenFileLedger& owner = *found->second;
    if (&owner != &entry) {
      auto [copy, inserted] = entry.copies.try_emplace(key_, TokenFileLedger::Booked{line.usage, std::string(day), std::string(model)});
      if (!inserted) copy->second.usage = fullest(copy->second.usage, line.usage);
    }
    TokenFileLedger::Booked& booked = owner.counted.find(std::string_view(key_))->second;
    const TokenUsage beyond{std::max<int64_t>(0, line.usage.input - booked.usage.input),
                            std::max<int64_t>(0, line.usage.output - booked.usage.output),
                            std::max<int64_t>(0, line.usage.cacheRead - booked.usage.cacheRead),
                            std::max<int64_t>(0, line.usage.cacheWrite - booked.usage.cacheWrite)};
    if (beyond.isZero()) return;
    owner.add(beyond, booked.model, booked.day);
    booked.usage += beyond;
  }

  static TokenUsage fullest(const TokenUsage& a, const TokenUsage& b) {
    return {std::max(a.input, b.input), std::max(a.output, b.output), std::max(a.cacheRead, b.cacheRead),
            std::max(a.cacheWrite, b.cacheWrite)};
  }

  void index() {
    if (indexed_) return;
    index_.clear();
    for (auto& [path, file] : files_)
      for (const auto& [key, booked] : file.counted) index_.emplace(std::string_view(key), &file);
    indexed_ = true;
  }

  // "token_count" events and "turn_context" lines; anything else of that type is looked at and left.
  void codexLines(const char* begin, const char* end, TokenFileLedger& entry) {
    constexpr std::string_view typeT = "\"type\":\"t";
    const char* p = begin;
    while (const char* hit = find(p, end, typeT)) {
      const auto* lineEnd = static_cast<const char*>(std::memchr(hit, '\n', static_cast<size_t>(end - hit)));
      if (!lineEnd) lineEnd = end;
      const auto* newline = static_cast<const char*>(::memrchr(p, '\n', static_cast<size_t>(hit - p)));
      codexLine(newline ? newline + 1 : p, lineEnd, entry);
      p = lineEnd + 1;
      if (p >= end) break;
    }
  }

  // Codex's running totals in one usage object: input (with the cached part), output, cached.
  static std::optional<TokenUsage> codexCounts(const char* from, const char* to, std::string_view key) {
    const char* at = find(from, to, key);
    if (!at) return std::nullopt;
    const char* close = objectEnd(at + key.size() - 1, to);
    TokenUsage totals;
    if (!countAfter(at, close, "\"input_tokens\":", totals.input) ||
        !countAfter(at, close, "\"output_tokens\":", totals.output) ||
        !countAfter(at, close, "\"cached_input_tokens\":", totals.cacheRead))
      return std::nullopt;
    return totals;
  }

  void codexLine(const char* begin, const char* end, TokenFileLedger& entry) {
    if (find(begin, end, "\"type\":\"turn_context\"")) {
      const char* payload = find(begin, end, "\"payload\":{");
      const auto model = quotedAfter(find(payload ? payload : begin, end, modelKey), modelKey.size(), end);
      if (!model.empty()) entry.model = usage_text::valid(model);
      return;
    }
    if (!find(begin, end, "\"type\":\"token_count\"")) return;
    constexpr std::string_view infoKey = "\"info\":";
    const char* info = find(begin, end, infoKey);
    if (!info || info + infoKey.size() >= end || info[infoKey.size()] != '{') return;  // limits only
    const char* infoEnd = objectEnd(info + infoKey.size(), end);
    auto total = codexCounts(info, infoEnd, "\"total_token_usage\":{");
    if (!total) return;
    const char* timestampAt = find(begin, end, timestampKey);
    auto at = parseISO8601(quotedAfter(timestampAt, timestampKey.size(), end));
    if (!at) return;

    const TokenUsage& last = entry.lastTotal;
    TokenUsage grown{total->input - last.input, total->output - last.output, total->cacheRead - last.cacheRead, 0};
    if (grown.input < 0 || grown.output < 0 || grown.cacheRead < 0) {
      // The totals started again (a new or forked session replaying into the same file).
      grown = codexCounts(info, infoEnd, "\"last_token_usage\":{").value_or(*total);
    }
    entry.lastTotal = *total;
    if (grown.isZero()) return;
    const TokenUsage booked{std::max<int64_t>(0, grown.input - grown.cacheRead), std::max<int64_t>(0, grown.output),
                            std::max<int64_t>(0, grown.cacheRead), 0};
    entry.add(booked, entry.model ? std::string_view(*entry.model) : TokenLogs::unknownModel, days_.of(*at));
  }

  TokenLedger::Files& files_;
  TokenLedger::Index& index_;
  bool& indexed_;
  UsageTool tool_;
  DayKeys days_;
  Buffer buffer_;
  std::string key_;
  std::string model_;  // a model name made UTF-8
};

bool keepsLogs(UsageTool tool) { return tool == UsageTool::claude || tool == UsageTool::codex; }

}  // namespace

std::string TokenLogs::ClaudeLine::key() const {
  std::string key;
  if (hasKey()) appendKey(key, messageID, requestID);
  return key;
}

TokenLogs::ClaudeLine TokenLogs::readClaudeLine(std::string_view text) {
  if (const auto newline = text.find('\n'); newline != std::string_view::npos) text = text.substr(0, newline);
  const char* begin = text.data();
  const char* end = text.data() + text.size();
  const char* hit = findLast(begin, end, assistantKey);
  if (!hit) return ClaudeLine{};
  return scanClaudeLine(begin, end, hit);
}

TokenLogs::Update TokenLogs::updateFolders(TokenLedger& ledger, UsageTool tool,
                                           const std::vector<std::filesystem::path>& folders, Date since,
                                           const DayCalendar& calendar) {
  Update update;
  if (!keepsLogs(tool)) return update;
  Found found = walkShared(folders);
  update.seen = std::move(found.paths);
  const std::vector<std::string>& paths = update.seen;
  const std::vector<Candidate>& candidates = found.candidates;

  std::vector<size_t> current;  // the candidates modified since `since`
  current.reserve(candidates.size());
  for (size_t i = 0; i < candidates.size(); ++i)
    if (candidates[i].modified >= since) current.push_back(i);

  // The table keeps no hashes, so a lookup hashes again the path of each node it passes in
  // a bucket. At most half full (set once per ledger; copies keep it), most files sit first.
  if (ledger.files_.max_load_factor() > sparseLoad) {
    ledger.files_.max_load_factor(sparseLoad);
    ledger.files_.reserve(ledger.files_.size());
  }
  std::vector<size_t> toRead;
  std::vector<size_t> newcomers;  // current files without an entry
  size_t currentEntries = 0;      // entries of files modified since `since`
  visitEntries(ledger.files_, paths, current, [&](size_t i, const TokenFileLedger* known) {
    if (known) {
      ++currentEntries;
      // Logs only grow; the same size means nothing new.
      if (known->size == candidates[current[i]].size) return;
    } else {
      newcomers.push_back(current[i]);
    }
    toRead.push_back(current[i]);
  });
  // Only when there are new files and entries beside the current ones can a file have moved.
  if (!newcomers.empty() && currentEntries < ledger.files_.size())
    currentEntries += adoptMoved(ledger.files_, paths, candidates, newcomers, toRead);
  // The oldest first, so that a reply copied into a later session is booked where it was written.
  std::stable_sort(toRead.begin(), toRead.end(),
                   [&](size_t a, size_t b) { return candidates[a].modified < candidates[b].modified; });
  Reader reader(ledger.files_, ledger.index_, ledger.indexed_, tool, calendar);
  for (const size_t i : toRead)
    if (reader.read(paths[i], candidates[i].size, update)) ++currentEntries;

  // Entries go with their files, and once they hold nothing from `since` on, unless their
  // file is still read; when every entry is a current file's, there is nothing to look at.
  if (currentEntries == ledger.files_.size()) return update;
  const std::string firstDay(reader.days().of(since));
  const std::unordered_set<std::string_view> seen(paths.begin(), paths.end());
  std::unordered_set<std::string_view> currentPaths;
  for (const size_t i : current) currentPaths.insert(paths[i]);
  Reader::Orphans orphans;
  for (auto it = ledger.files_.begin(); currentEntries != ledger.files_.size() && it != ledger.files_.end();) {
    const auto& days = it->second.days;
    const bool recent = !days.empty() && days.rbegin()->first >= firstDay;
    if (seen.count(it->first) && (recent || currentPaths.count(it->first))) {
      ++it;
      continue;
    }
    orphans.merge(reader.forget(it->second));
    it = ledger.files_.erase(it);
  }
  reader.handOver(orphans);
  return update;
}

TokenLogs::Update TokenLogs::update(TokenLedger& ledger, UsageTool tool, const std::vector<std::filesystem::path>& homes,
                                    Date since, const DayCalendar& calendar) {
  std::vector<std::filesystem::path> folders;
  for (const auto& home : homes) {
    if (tool == UsageTool::claude) {
      folders.push_back(home / "projects");
    } else if (tool == UsageTool::codex) {
      folders.push_back(home / "sessions");
      folders.push_back(home / "archived_sessions");
    }
  }
  return updateFolders(ledger, tool, folders, since, calendar);
}

TokenLogs::Update TokenLogs::update(TokenLedger& ledger, UsageTool tool, const AppPaths::Environment& environment,
                                    Date since, const DayCalendar& calendar) {
  if (tool == UsageTool::claude) return update(ledger, tool, UsageLogins::claudeHomes(environment), since, calendar);
  if (tool == UsageTool::codex) return update(ledger, tool, UsageLogins::codexHomes(environment), since, calendar);
  return {};
}

void TokenLogs::updateSession(SessionLedger& session, UsageTool tool, const std::vector<std::filesystem::path>& files,
                              const DayCalendar& calendar) {
  if (!keepsLogs(tool)) return;
  TokenLedger& ledger = session.ledger_;
  Reader reader(ledger.files_, ledger.index_, ledger.indexed_, tool, calendar);
  Update update;
  for (const auto& file : files) {
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    session.found_ = true;
    const std::string path = file.string();
    auto known = ledger.files_.find(path);
    if (known != ledger.files_.end() && known->second.size == static_cast<uint64_t>(st.st_size)) continue;
    reader.read(path, static_cast<uint64_t>(st.st_size), update);
  }
}

void TokenLogs::readLines(TokenLedger& ledger, UsageTool tool, const std::string& file, std::string_view text,
                          const DayCalendar& calendar) {
  if (!keepsLogs(tool)) return;
  Reader reader(ledger.files_, ledger.index_, ledger.indexed_, tool, calendar);
  reader.take(file, text);
}

std::vector<std::string> TokenLogs::days(int back, Date from, const DayCalendar& calendar) {
  std::vector<std::string> keys;
  const auto today = calendar.civilDay(from);
  for (int i = back - 1; i >= 0; --i) keys.push_back(DayCalendar::key(DayCalendar::adding(today, -i)));
  return keys;
}

Date TokenLogs::start(int ofDaysBack, Date from, const DayCalendar& calendar) {
  return calendar.startOfDay(DayCalendar::adding(calendar.civilDay(from), -std::max(ofDaysBack - 1, 0)));
}

std::string TokenLogs::day(Date date, const DayCalendar& calendar) { return calendar.key(date); }

namespace {

std::vector<std::string_view> splitDashes(std::string_view text) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t dash = text.find('-');
    if (!text.substr(0, dash).empty()) parts.push_back(text.substr(0, dash));
    if (dash == std::string_view::npos) break;
    text.remove_prefix(dash + 1);
  }
  return parts;
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string capitalized(std::string_view word) {
  std::string text(word);
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

}  // namespace

std::string TokenLogs::modelName(std::string_view model) {
  if (model.starts_with("claude-")) {
    std::string_view rest = model.substr(7);
    if (const auto at = rest.find('@'); at != std::string_view::npos) rest = rest.substr(0, at);
    auto parts = splitDashes(rest);
    if (!parts.empty() && parts.back().size() == 8 && allDigits(parts.back())) parts.pop_back();
    std::string words, version;
    for (auto part : parts) {
      if (part[0] >= '0' && part[0] <= '9') {
        if (!version.empty()) version += '.';
        version += part;
      } else {
        if (!words.empty()) words += ' ';
        words += capitalized(part);
      }
    }
    if (words.empty()) words = "Claude";
    if (!version.empty()) {
      words += ' ';
      words += version;
    }
    return words;
  }
  if (model.starts_with("gpt-")) {
    auto parts = splitDashes(model.substr(4));
    // A trailing date, "2024-08-06".
    if (parts.size() >= 4 && parts[parts.size() - 3].size() == 4 && allDigits(parts[parts.size() - 3]) &&
        allDigits(parts[parts.size() - 2]) && allDigits(parts.back()))
      parts.resize(parts.size() - 3);
    if (parts.empty()) return std::string(model);
    std::string name("GPT-");
    name += parts.front();
    for (size_t i = 1; i < parts.size(); ++i) {
      name += ' ';
      name += capitalized(parts[i]);
    }
    return name;
  }
  return std::string(model);
}

}  // namespace omnira
