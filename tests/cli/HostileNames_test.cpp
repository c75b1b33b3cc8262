// Names that anyone on the computer can give a program or a process, shown to the person by
// the real commands: escaped on the terminal, never a formula in the exported CSV.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "OmniraCore/history/HistoryDatabase.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

// Retitles the terminal and rings its bell where it reaches one raw.
const std::string retitle = "\x1b]0;owned\x07";
const std::string retitleShown = "\\x1b]0;owned\\x07";

bool hasControls(const std::string& text) {
  return text.find('\x1b') != std::string::npos || text.find('\x07') != std::string::npos ||
         text.find("\xc2\x9b") != std::string::npos;
}

struct HostileNames : testing::CommandHome {
  std::vector<pid_t> children;
  void TearDown() override {
    for (const pid_t child : children) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
    CommandHome::TearDown();
  }

  // A program whose file is named `name`, running under that name as its argv[0] too.
  pid_t startProgram(const std::string& name) {
    const auto program = root / "bin" / name;
    fs::create_directories(program.parent_path());
    fs::permissions(root, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    fs::copy_file("/bin/sleep", program);
    const pid_t child = ::fork();
    if (child == 0) {
      // Root's own programs without a terminal are the system's: this one is somebody's.
      if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(126);
      ::execl(program.c_str(), name.c_str(), "120", nullptr);
      ::_exit(127);
    }
    children.push_back(child);
    return child;
  }

  // A process that names itself, as any program may.
  pid_t startRenamed(const std::string& comm) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::prctl(PR_SET_NAME, comm.c_str(), 0, 0, 0);
      ::pause();
      ::_exit(0);
    }
    children.push_back(child);
    return child;
  }
};

TEST_F(HostileNames, TheTerminalSeesEscapesForWhatProcessesAreCalled) {
  const std::string formula = "=HYPERLINK(\"evil\",\"x\")";
  const pid_t program = startProgram(retitle + formula);
  const pid_t renamed = startRenamed(retitle);  // 13 bytes: comm keeps at most 15
  // Both have started and named themselves before the commands look.
  for (int i = 0; i < 100; ++i) {
    std::ifstream comm("/proc/" + std::to_string(renamed) + "/comm");
    std::string name;
    std::getline(comm, name);
    std::ifstream exe("/proc/" + std::to_string(program) + "/cmdline");
    std::string line;
    std::getline(exe, line, '\0');
    if (name == retitle && line == retitle + formula) break;
    ::usleep(20'000);
  }

  const auto snapshot = run("snapshot --all");
  EXPECT_EQ(snapshot.status, 0) << snapshot.out;
  EXPECT_FALSE(hasControls(snapshot.out)) << snapshot.out;
  EXPECT_NE(snapshot.out.find(retitleShown + "=HYPERLINK"), std::string::npos) << snapshot.out;

  const auto canQuit = run("can-quit --pids " + std::to_string(program) + "," + std::to_string(renamed));
  EXPECT_FALSE(hasControls(canQuit.out)) << canQuit.out;
  EXPECT_NE(canQuit.out.find(retitleShown + " (" + std::to_string(renamed) + ")"), std::string::npos) << canQuit.out;

  // Typed by the person, shown back in a sentence: escaped too.
  const auto named = run("can-quit '" + retitle + "-no-such-program'");
  EXPECT_EQ(named.status, 1);
  EXPECT_FALSE(hasControls(named.out)) << named.out;
  EXPECT_NE(named.out.find(retitleShown + "-no-such-program"), std::string::npos) << named.out;
}

TEST_F(HostileNames, HistoryShowsThemEscapedAndExportsThemAsText) {
  const std::vector<std::string> names = {retitle + "Editor", "=HYPERLINK(\"http://evil\",\"x\")", "@SUM(1+1)",
                                          "-2+3", "\xc2\x9b" "2J"};
  {
    auto db = HistoryDatabase::open(root / "data" / "Omnira" / "history.sqlite");
    ASSERT_TRUE(db.ok()) << db.error().message;
    const Date end = std::chrono::system_clock::now();
    for (Date at = end - std::chrono::minutes(10); at <= end; at += std::chrono::seconds(5)) {
      SystemSample s;
      s.timestamp = at;
      s.interval = 5;
      s.cpuUser = 0.5;
      s.memoryTotal = 8ull << 30;
      std::vector<AppGroup> groups;
      for (size_t i = 0; i < names.size(); ++i) {
        ProcessSample p;
        p.cpuPercent = 10.0 * static_cast<double>(i + 1);
        p.memoryBytes = 100'000'000;
        groups.emplace_back("exec:/tmp/" + std::to_string(i), names[i], GroupKind::other, std::nullopt,
                            std::vector<ProcessSample>{p});
      }
      ASSERT_TRUE((*db)->record(s, groups, TickGroups::fresh, at).ok());
    }
  }

  const auto apps = run("history apps");
  ASSERT_EQ(apps.status, 0) << apps.out;
  EXPECT_FALSE(hasControls(apps.out)) << apps.out;
  EXPECT_NE(apps.out.find(retitleShown + "Editor"), std::string::npos) << apps.out;

  const auto exported = run("history export");
  ASSERT_EQ(exported.status, 0) << exported.out;
  std::string csv;
  for (const auto& entry : fs::directory_iterator(root / "downloads")) {
    if (entry.path().filename().string().find("app history") == std::string::npos) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    csv.assign(std::istreambuf_iterator<char>(in), {});
  }
  ASSERT_FALSE(csv.empty()) << exported.out;
  // A leading quote makes each one text, then the usual quoting for the comma and quotes.
  EXPECT_NE(csv.find(",\"'=HYPERLINK(\"\"http://evil\"\",\"\"x\"\")\","), std::string::npos) << csv;
  EXPECT_NE(csv.find(",'@SUM(1+1),"), std::string::npos) << csv;
  EXPECT_EQ(csv.find(",=HYPERLINK"), std::string::npos) << csv;
  // A name that is no formula stays as it was, and the figures after it stay figures.
  const size_t editor = csv.find("," + retitle + "Editor,");
  ASSERT_NE(editor, std::string::npos) << csv;
  EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(csv[editor + retitle.size() + 8]))) << csv;
}

}  // namespace
}  // namespace omnira
