#pragma once
// A writable sysfs tree for one test: a copy of a fixture machine (symlinks kept as
// symlinks) or an empty folder, removed afterwards.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "OmniraCore/platform/linux/Roots.h"

namespace omnira::platform::testing {

inline std::filesystem::path fixture(const std::string& name) { return std::filesystem::path(OMNIRA_FIXTURES) / name; }

inline Roots fixtureRoots(const std::string& name) { return Roots{"/nonexistent-proc", fixture(name)}; }

struct SysTree : ::testing::Test {
  std::filesystem::path root;

  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-sys-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(root); }

  void copyFixture(const std::string& name) {
    std::filesystem::copy(fixture(name), root,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }

  void write(const std::string& relative, const std::string& text) {
    std::filesystem::create_directories((root / relative).parent_path());
    std::ofstream(root / relative, std::ios::trunc) << text;
  }

  Roots roots() const { return Roots{"/nonexistent-proc", root}; }
};

}  // namespace omnira::platform::testing
