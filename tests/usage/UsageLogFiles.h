#pragma once
// Shared by the usage tests: a fresh folder per test with homes for the coding tools, log
// lines shaped like the ones Claude Code writes, and environments made of a few variables.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/usage/TokenUsage.h"

namespace omnira {

// Failures show the four counts, not the bytes.
inline void PrintTo(const TokenUsage& usage, std::ostream* out) {
  *out << "{" << usage.input << ", " << usage.output << ", " << usage.cacheRead << ", " << usage.cacheWrite << "}";
}

}  // namespace omnira

namespace omnira::usage_testing {

namespace fs = std::filesystem;

inline const fs::path fixtures = fs::path(OMNIRA_FIXTURES) / "usage";

// An environment that holds these variables and no others.
inline AppPaths::Environment environment(std::map<std::string, std::string> variables) {
  return [variables = std::move(variables)](const std::string& name) -> std::optional<std::string> {
    auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

struct LogFolder : ::testing::Test {
  fs::path folder;

  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "omnira-usage-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder = pattern;
  }
  void TearDown() override { fs::remove_all(folder); }

  fs::path claudeHome() const { return folder / "claude"; }
  fs::path codexHome() const { return folder / "codex"; }
  fs::path project(const std::string& name) const { return claudeHome() / "projects" / name; }

  static void append(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::app);
    out << text;
  }
  static void replace(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
  }
  static std::string read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
};

// One assistant line as Claude Code writes it, with a newline.
inline std::string assistantLine(const std::string& message, const std::string& request, const std::string& model,
                                 const TokenUsage& usage, const std::string& timestamp,
                                 const std::string& text = "Reading the file.") {
  nlohmann::ordered_json line = {
      {"parentUuid", "p"},
      {"isSidechain", false},
      {"userType", "external"},
      {"cwd", "/home/dev/shop"},
      {"sessionId", "s"},
      {"version", "1.0.98"},
      {"message",
       {{"id", message},
        {"type", "message"},
        {"role", "assistant"},
        {"model", model},
        {"content", {{{"type", "text"}, {"text", text}}}},
        {"stop_reason", nullptr},
        {"stop_sequence", nullptr},
        {"usage",
         {{"input_tokens", usage.input},
          {"cache_creation_input_tokens", usage.cacheWrite},
          {"cache_read_input_tokens", usage.cacheRead},
          {"output_tokens", usage.output},
          {"service_tier", "standard"}}}}},
      {"requestId", request},
      {"type", "assistant"},
      {"uuid", "u"},
      {"timestamp", timestamp}};
  return line.dump() + "\n";
}

}  // namespace omnira::usage_testing
