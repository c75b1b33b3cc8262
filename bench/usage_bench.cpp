// Token logs as Claude Code and Codex leave them: a first full read of generated logs
// (many projects and sessions, replies streamed over several lines with partial output,
// resumed sessions repeating earlier replies; the model before the id, as 2.x writes), and refreshes of 5,000 files with nothing
// or a few lines new. Generated once per size into a temporary folder, read warm.
// peakMB is the process's peak resident memory while the timed reads ran.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/usage/TokenLogs.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr uint64_t MB = 1024 * 1024;

struct TemporaryFolder {
  fs::path path;
  TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "omnira-usage-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    path = pattern;
  }
  ~TemporaryFolder() { fs::remove_all(path); }
};

// Peak resident memory since the last reset, in MB.
void resetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }
double peakMemoryMB() {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("VmHWM:"))
      if (auto kb = parseKilobytes(line.substr(6))) return static_cast<double>(*kb) / 1024;
  }
  return 0;
}

// JSON-escaped text, cut into the content of the generated lines: code and prose with
// quotes and newlines escaped as the tools write them.
class Corpus {
 public:
  explicit Corpus(std::mt19937_64& rng) {
    static const char* words[] = {"const",  "return", "function", "the",     "test",   "checkout", "value", "if",
                                  "await",  "import", "export",   "discount", "cart",   "price",    "let",   "=>",
                                  "null",   "true",   "items",    "order",    "user",   "render",   "props", "state",
                                  "=",      "+",      "(x)",      "[0]",      "a.b.c",  "ß",        "→",     "ok"};
    while (text_.size() < 4 * MB) {
      const auto pick = rng() % 40;
      if (pick < 32) text_ += words[pick];
      else if (pick < 35) text_ += "\\\"";
      else if (pick < 37) text_ += "\\n";
      else if (pick < 38) text_ += "{ ";
      else text_ += "} ";
      text_ += ' ';
    }
  }
  std::string_view take(std::mt19937_64& rng, size_t size) {
    size = std::min(size, text_.size() / 2);
    size_t start = rng() % (text_.size() - size);
    while (start > 0 && (static_cast<unsigned char>(text_[start]) & 0xC0) == 0x80) --start;
    std::string_view piece(text_.data() + start, size);
    // Never end inside an escape or a character.
    while (!piece.empty() && (piece.back() == '\\' || (static_cast<unsigned char>(piece.back()) & 0x80)))
      piece.remove_suffix(1);
    return piece;
  }

 private:
  std::string text_;
};

class ClaudeGenerator {
 public:
  // `scale` shrinks the content of each line (1: as large as real ones get). Claude Code 2.x
  // names a reply's model before its id; 1.x wrote the id first.
  explicit ClaudeGenerator(double scale = 1, bool modelFirst = true)
      : corpus_(rng_), scale_(scale), modelFirst_(modelFirst) {}

  // Writes about `bytes` of logs, in at most `sessions` files, into `projects` folders
  // under root/projects.
  void write(const fs::path& root, uint64_t bytes, int sessions, int projects, uint64_t meanSession) {
    std::vector<std::vector<std::string>> lastLines(static_cast<size_t>(projects));
    uint64_t written = 0;
    for (int session = 0; written < bytes && session < sessions; ++session) {
      const int project = static_cast<int>(rng_() % static_cast<uint64_t>(projects));
      const fs::path folder = root / "projects" / fmt::format("-home-dev-projects-app{:03}", project);
      fs::create_directories(folder);
      std::ofstream out(folder / fmt::format("{:08x}-7d41-4c1e-9a6b-{:012x}.jsonl", session, rng_() & 0xffffffffffff),
                        std::ios::binary);
      // Sessions are skewed: most are short, a few are long.
      std::lognormal_distribution<double> length(std::log(static_cast<double>(meanSession)) - 0.5, 1.0);
      const uint64_t target = std::min<uint64_t>(static_cast<uint64_t>(length(rng_)) + 1000, bytes - written + 1000);
      uint64_t size = 0;
      auto& previous = lastLines[static_cast<size_t>(project)];
      if (!previous.empty() && rng_() % 100 < 20) {
        // A resumed session starts by repeating the end of an earlier one.
        for (const auto& line : previous) {
          out << line;
          size += line.size();
        }
      }
      std::vector<std::string> recent;
      while (size < target) size += turn(out, recent);
      previous = std::move(recent);
      written += size;
    }
  }

  uint64_t turn(std::ostream& out, std::vector<std::string>& recent) {
    uint64_t size = 0;
    const auto emit = [&](std::string line) {
      size += line.size();
      out << line;
      recent.push_back(std::move(line));
      if (recent.size() > 12) recent.erase(recent.begin());
    };
    clock_ += std::chrono::seconds(5 + rng_() % 120);
    emit(userPrompt());
    const int steps = 1 + static_cast<int>(rng_() % 6);
    for (int step = 0; step < steps; ++step) {
      const std::string message = fmt::format("msg_01{:022}", ++replies_);
      const std::string request = fmt::format("req_011C{:020}", replies_);
      const int blocks = 1 + static_cast<int>(rng_() % 3);
      const int64_t output = 20 + static_cast<int64_t>(rng_() % 2000);
      for (int block = 0; block < blocks; ++block) {
        clock_ += std::chrono::milliseconds(300 + rng_() % 4000);
        const bool last = block == blocks - 1;
        emit(assistant(message, request, block, last, last ? output : 1 + static_cast<int64_t>(rng_() % 12)));
      }
      clock_ += std::chrono::milliseconds(200 + rng_() % 9000);
      emit(toolResult());
    }
    return size;
  }

 private:
  std::string head(const char* parent) {
    return fmt::format(
        R"({{"parentUuid":"{}","isSidechain":false,"userType":"external","cwd":"/home/dev/projects/app","sessionId":"5f0e2c1a-7d41-4c1e-9a6b-2f3d8e9c0a11","version":"2.0.14","gitBranch":"main",)",
        parent);
  }
  std::string tail(const char* type) {
    return fmt::format(R"("type":"{}","uuid":"{:08x}-1111-4222-8333-{:012x}","timestamp":"{}"}})", type,
                       static_cast<uint32_t>(rng_()), rng_() & 0xffffffffffff, formatISO8601(clock_)) +
           "\n";
  }
  std::string text(size_t low, size_t high) {
    const auto size = static_cast<size_t>(static_cast<double>(low + rng_() % (high - low)) * scale_) + 1;
    return std::string(corpus_.take(rng_, size));
  }

  std::string userPrompt() {
    return head("a1b2") + R"("message":{"role":"user","content":")" + text(80, 700) + "\"}," + tail("user");
  }

  std::string toolResult() {
    const std::string result = text(400, 24000);
    return head("b2c3") +
           R"("message":{"role":"user","content":[{"tool_use_id":"toolu_01ABC","type":"tool_result","content":")" +
           result + R"("}]},)" + R"("toolUseResult":{"stdout":")" + result +
           R"(","stderr":"","interrupted":false,"isImage":false},)" + tail("user");
  }

  std::string assistant(const std::string& message, const std::string& request, int block, bool last, int64_t output) {
    std::string content;
    switch (block) {
      case 0:
        content = R"({"type":"thinking","thinking":")" + text(200, 3000) + R"(","signature":")" +
                  std::string(300 + rng_() % 300, 'E') + "\"}";
        break;
      case 1: content = R"({"type":"text","text":")" + text(60, 1500) + "\"}"; break;
      default:
        content = R"({"type":"tool_use","id":"toolu_01ABC","name":"Edit","input":{"file_path":"/home/dev/projects/app/src/cart.ts","old_string":")" +
                  text(50, 3000) + R"(","new_string":")" + text(50, 3000) + "\"}}";
    }
    const int64_t cacheWrite = static_cast<int64_t>(rng_() % 6000);
    const char* model = rng_() % 5 == 0 ? "claude-opus-4-1-20250805" : "claude-sonnet-4-5-20250929";
    const std::string opening =
        modelFirst_ ? fmt::format(R"("message":{{"model":"{}","id":"{}","type":"message","role":"assistant",)", model, message)
                    : fmt::format(R"("message":{{"id":"{}","type":"message","role":"assistant","model":"{}",)", message, model);
    return head("c3d4") + opening +
           fmt::format(
               R"("content":[{}],"stop_reason":{},"stop_sequence":null,"usage":{{"input_tokens":{},"cache_creation_input_tokens":{},"cache_read_input_tokens":{},"cache_creation":{{"ephemeral_5m_input_tokens":{},"ephemeral_1h_input_tokens":0}},"output_tokens":{},"service_tier":"standard"}}}},"requestId":"{}",)",
               content, last ? "\"tool_use\"" : "null", 1 + rng_() % 9, cacheWrite, 10000 + rng_() % 120000,
               cacheWrite, output, request) +
           tail("assistant");
  }

  std::mt19937_64 rng_{20261122};
  Corpus corpus_;
  double scale_;
  bool modelFirst_;
  Date clock_ = std::chrono::system_clock::now() - 24h * 6;
  uint64_t replies_ = 0;
};

// One generated tree per shape, kept for the whole run.
const fs::path& claudeLogs(uint64_t megabytes, int sessions, int projects, uint64_t meanSession, double scale = 1,
                           bool modelFirst = true) {
  static std::map<std::tuple<uint64_t, int, int, uint64_t, double, bool>, std::unique_ptr<TemporaryFolder>> made;
  auto& folder = made[{megabytes, sessions, projects, meanSession, scale, modelFirst}];
  if (!folder) {
    folder = std::make_unique<TemporaryFolder>();
    ClaudeGenerator(scale, modelFirst).write(folder->path, megabytes * MB, sessions, projects, meanSession);
  }
  return folder->path;
}

uint64_t treeBytes(const fs::path& root) {
  uint64_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    if (entry.is_regular_file()) bytes += entry.file_size();
  return bytes;
}

const Date longAgo = dateFromSecondsSinceEpoch(0);

// A first full read of `range(0)` MB in sessions of about 200 KB over 60 projects, in
// today's line layout (range(1) 1) or the older one, id first (0).
void claudeFirstRead(benchmark::State& state) {
  const auto& root = claudeLogs(static_cast<uint64_t>(state.range(0)), 1 << 30, 60, 200'000, 1, state.range(1) == 1);
  const uint64_t bytes = treeBytes(root / "projects");
  { TokenLedger warm; TokenLogs::update(warm, UsageTool::claude, {root}, longAgo); }
  resetPeakMemory();
  size_t files = 0, replies = 0;
  for (auto _ : state) {
    TokenLedger ledger;
    auto update = TokenLogs::update(ledger, UsageTool::claude, {root}, longAgo);
    files = update.filesRead;
    replies = ledger.replies();
    benchmark::DoNotOptimize(ledger);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["MB"] = static_cast<double>(bytes) / MB;
  state.counters["files"] = static_cast<double>(files);
  state.counters["replies"] = static_cast<double>(replies);
  state.counters["peakMB"] = peakMemoryMB();
}
BENCHMARK(claudeFirstRead)
    ->Args({64, 1})
    ->Args({64, 0})
    ->Args({400, 1})
    ->ArgNames({"MB", "modelFirst"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The same bytes in a few large sessions: memory stays at a chunk and the ledger.
void claudeFirstReadLargeFiles(benchmark::State& state) {
  const auto& root = claudeLogs(static_cast<uint64_t>(state.range(0)), 1 << 30, 2, 50'000'000);
  const uint64_t bytes = treeBytes(root / "projects");
  { TokenLedger warm; TokenLogs::update(warm, UsageTool::claude, {root}, longAgo); }
  resetPeakMemory();
  size_t files = 0;
  for (auto _ : state) {
    TokenLedger ledger;
    files = TokenLogs::update(ledger, UsageTool::claude, {root}, longAgo).filesRead;
    benchmark::DoNotOptimize(ledger);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["MB"] = static_cast<double>(bytes) / MB;
  state.counters["files"] = static_cast<double>(files);
  state.counters["peakMB"] = peakMemoryMB();
}
BENCHMARK(claudeFirstReadLargeFiles)->Arg(400)->Unit(benchmark::kMillisecond)->UseRealTime();

// 5,000 session files over 100 projects, read once; then each refresh finds either nothing
// new (range 0) or a reply of a few lines appended to one file (range 1).
void claudeRefresh(benchmark::State& state) {
  const auto& root = claudeLogs(1 << 20, 5000, 100, 4'000, 0.15);
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(root / "projects"))
    if (entry.is_regular_file()) files.push_back(entry.path());
  const Date since = TokenLogs::start(7, std::chrono::system_clock::now());
  TokenLedger ledger;
  TokenLogs::update(ledger, UsageTool::claude, {root}, since);
  ClaudeGenerator more(0.15);
  std::mt19937_64 rng(7);
  uint64_t read = 0;
  for (auto _ : state) {
    if (state.range(0) == 1) {
      state.PauseTiming();
      std::ofstream out(files[rng() % files.size()], std::ios::binary | std::ios::app);
      std::vector<std::string> recent;
      more.turn(out, recent);
      out.close();
      state.ResumeTiming();
    }
    auto update = TokenLogs::update(ledger, UsageTool::claude, {root}, since);
    read += update.bytesRead;
    benchmark::DoNotOptimize(update);
  }
  state.counters["files"] = static_cast<double>(files.size());
  state.counters["bytesReadPerRefresh"] = static_cast<double>(read) / static_cast<double>(state.iterations());
}
BENCHMARK(claudeRefresh)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Codex sessions: conversation lines with a running token count after each turn.
void codexFirstRead(benchmark::State& state) {
  static TemporaryFolder folder;
  static bool made = false;
  const uint64_t target = static_cast<uint64_t>(state.range(0)) * MB;
  if (!made) {
    std::mt19937_64 rng(11);
    Corpus corpus(rng);
    Date clock = std::chrono::system_clock::now() - 24h * 6;
    uint64_t written = 0;
    for (int session = 0; written < target; ++session) {
      const fs::path day = folder.path / "sessions" / "2026" / "11" / fmt::format("{:02}", 15 + session % 7);
      fs::create_directories(day);
      std::ofstream out(day / fmt::format("rollout-2026-11-15T10-00-00-{:08x}.jsonl", session), std::ios::binary);
      const auto line = [&](const char* type, const std::string& payload) {
        clock += std::chrono::milliseconds(500 + rng() % 20000);
        const std::string text = fmt::format(R"({{"timestamp":"{}","type":"{}","payload":{}}})", formatISO8601(clock), type, payload) + "\n";
        out << text;
        written += text.size();
      };
      line("turn_context", R"({"cwd":"/home/dev/app","approval_policy":"on-request","model":"gpt-5-codex","effort":"medium","summary":"auto"})");
      int64_t input = 0, cached = 0, output = 0;
      const int turns = 20 + static_cast<int>(rng() % 200);
      for (int t = 0; t < turns; ++t) {
        line("response_item", R"({"type":"message","role":"user","content":[{"type":"input_text","text":")" +
                                  std::string(corpus.take(rng, 100 + rng() % 800)) + "\"}]}");
        line("response_item", R"({"type":"function_call_output","call_id":"call_1","output":")" +
                                  std::string(corpus.take(rng, 500 + rng() % 12000)) + "\"}");
        const int64_t in = 3000 + static_cast<int64_t>(rng() % 30000), c = in / 2, o = 50 + static_cast<int64_t>(rng() % 900);
        input += in, cached += c, output += o;
        line("event_msg", fmt::format(
            R"({{"type":"token_count","info":{{"total_token_usage":{{"input_tokens":{},"cached_input_tokens":{},"output_tokens":{},"reasoning_output_tokens":0,"total_tokens":{}}},"last_token_usage":{{"input_tokens":{},"cached_input_tokens":{},"output_tokens":{},"reasoning_output_tokens":0,"total_tokens":{}}},"model_context_window":272000}},"rate_limits":{{"primary":{{"used_percent":12.0,"window_minutes":300,"resets_at":1795000000}},"secondary":null}}}})",
            input, cached, output, input + output, in, c, o, in + o));
      }
    }
    made = true;
  }
  const uint64_t bytes = treeBytes(folder.path / "sessions");
  { TokenLedger warm; TokenLogs::update(warm, UsageTool::codex, {folder.path}, longAgo); }
  for (auto _ : state) {
    TokenLedger ledger;
    TokenLogs::update(ledger, UsageTool::codex, {folder.path}, longAgo);
    benchmark::DoNotOptimize(ledger);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["MB"] = static_cast<double>(bytes) / MB;
}
BENCHMARK(codexFirstRead)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace omnira
