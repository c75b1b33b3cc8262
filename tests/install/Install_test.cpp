// Installs this build into temporary prefixes with `cmake --install`, as a person or a
// package build would, and checks where every file lands.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The unit's ExecStart line, without the key.
std::string execStart(const fs::path& unit) {
  std::istringstream lines(readFile(unit));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("ExecStart=", 0) == 0) return line.substr(10);
  }
  return {};
}

class InstallTest : public ::testing::Test {
 protected:
  fs::path folder;

  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "omnira-install-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder = pattern;
  }
  void TearDown() override { fs::remove_all(folder); }

  testing::CommandRun install(const std::string& environment, const std::string& prefix) {
    // One install at a time: ctest runs tests in parallel and every install rewrites the
    // build folder's install_manifest.txt.
    return testing::runShell(environment + " flock '" OMNIRA_BUILD_DIR "/.install-test.lock' cmake --install '" OMNIRA_BUILD_DIR
                             "' --prefix '" + prefix + "' 2>&1");
  }
};

TEST_F(InstallTest, PutsEveryFileInItsPlace) {
  const fs::path prefix = folder / "prefix";
  const testing::CommandRun run = install("", prefix.string());
  ASSERT_EQ(run.status, 0) << run.out;

  const fs::path command = prefix / "bin/omnira";
  const fs::path app = prefix / "libexec/omnira/omnira-app";
  const fs::path entry = prefix / "share/applications/omnira.desktop";
  const fs::path icon = prefix / "share/icons/hicolor/scalable/apps/omnira.svg";
  const fs::path unit = prefix / "share/systemd/user/omnira.service";
  for (const fs::path& file : {command, app, entry, icon, unit}) EXPECT_TRUE(fs::is_regular_file(file)) << file;
  EXPECT_EQ(::access(command.c_str(), X_OK), 0);
  EXPECT_EQ(::access(app.c_str(), X_OK), 0);

  // The installed command is a working program, not just a copied file.
  const testing::CommandRun version = testing::runShell("'" + command.string() + "' --version 2>&1");
  EXPECT_EQ(version.status, 0) << version.out;

  EXPECT_EQ(execStart(unit), command.string() + " run --tray-only");
  const std::string desktop = readFile(entry);
  EXPECT_NE(desktop.find("\nExec=omnira run\n"), std::string::npos) << desktop;

  // Removing an installation goes by the manifest, so it must name every file.
  std::set<std::string> manifest;
  std::istringstream lines(readFile(OMNIRA_BUILD_DIR "/install_manifest.txt"));
  for (std::string line; std::getline(lines, line);) manifest.insert(line);
  for (const fs::path& file : {command, app, entry, icon, unit}) EXPECT_EQ(manifest.count(file.string()), 1u) << file;
}

TEST_F(InstallTest, StagedInstallNamesTheFinalPrefix) {
  // A package build stages under DESTDIR; the unit must still name the command where it ends up.
  const fs::path stage = folder / "stage";
  const testing::CommandRun run = install("DESTDIR='" + stage.string() + "'", "/usr/local");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(fs::is_regular_file(stage / "usr/local/bin/omnira"));
  EXPECT_EQ(execStart(stage / "usr/local/share/systemd/user/omnira.service"), "/usr/local/bin/omnira run --tray-only");
}

}  // namespace
}  // namespace omnira
