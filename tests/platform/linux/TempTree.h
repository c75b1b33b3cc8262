#pragma once
// What the readers' tests share: scratch trees (an empty folder or a copy of a fixture
// machine, symlinks kept as symlinks) that a test changes between readings, removed with
// everything in it when the test ends; and work done as another user in a child. Owned by the
// test that makes one; one thread.

#include <grp.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "OmniraCore/platform/linux/Roots.h"

namespace omnira::platform {

inline std::filesystem::path fixturePath(const std::string& name) { return std::filesystem::path(OMNIRA_FIXTURES) / name; }

// A fixture machine's sysfs; no proc.
inline Roots fixtureRoots(const std::string& name) { return Roots{"/nonexistent-proc", fixturePath(name)}; }

// A file's text without its trailing newlines, as sysfs files are compared; empty if unreadable.
inline std::string fileText(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  std::string s = text.str();
  while (!s.empty() && s.back() == '\n') s.pop_back();
  return s;
}

// The sample of `pid` in a sampler's list, or null.
template <class Samples>
auto findPID(const Samples& samples, int32_t pid) -> decltype(&*samples.begin()) {
  for (const auto& s : samples)
    if (s.pid == pid) return &s;
  return nullptr;
}

// What `work` answers when run in a child that gave up root for nobody (65534), as a
// stranger's process would; "cannot become nobody" when the child could not.
inline std::string asNobody(const std::function<std::string()>& work) {
  int pipeFDs[2];
  if (::pipe(pipeFDs) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipeFDs[0]);
    const bool dropped =
        ::setgroups(0, nullptr) == 0 && ::setresgid(65534, 65534, 65534) == 0 && ::setresuid(65534, 65534, 65534) == 0;
    const std::string answer = dropped ? work() : "cannot become nobody";
    (void)!::write(pipeFDs[1], answer.data(), answer.size());
    ::_exit(0);
  }
  ::close(pipeFDs[1]);
  std::string answer;
  char buffer[512];
  for (ssize_t n; (n = ::read(pipeFDs[0], buffer, sizeof buffer)) > 0;) answer.append(buffer, static_cast<size_t>(n));
  ::close(pipeFDs[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return child > 0 ? answer : "no child";
}

class TempTree {
 public:
  TempTree() {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-tree-XXXXXX").string();
    if (::mkdtemp(pattern.data())) root_ = pattern;
  }
  // A copy of the fixture tree `name`, or of any folder given by its full path.
  explicit TempTree(const std::filesystem::path& from) : TempTree() {
    std::filesystem::copy(from.is_absolute() ? from : fixturePath(from.string()), root_,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }
  ~TempTree() {
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
  }
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  const std::filesystem::path& root() const { return root_; }
  // The tree as sysfs, with no proc.
  Roots sys() const { return Roots{"/nonexistent-proc", root_}; }

  // Writes `text` at `relative`, making the folders on the way.
  void write(const std::filesystem::path& relative, std::string_view text) const {
    const auto path = root_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  }

  // A symlink at `relative` pointing at `target` (which need not exist, as a sysfs driver link's
  // target need not in a copy of the tree).
  void link(const std::filesystem::path& relative, const std::filesystem::path& target) const {
    const auto path = root_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::create_symlink(target, path);
  }

 private:
  std::filesystem::path root_;
};

}  // namespace omnira::platform
