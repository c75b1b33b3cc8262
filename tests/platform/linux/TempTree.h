#pragma once
// A scratch folder for readers that need files to change between two readings, or a
// layout no fixture has. Removed with everything in it when the test ends.

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace omnira::platform {

class TempTree {
 public:
  TempTree() {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-tree-XXXXXX").string();
    if (::mkdtemp(pattern.data())) root_ = pattern;
  }
  ~TempTree() {
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
  }
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  const std::filesystem::path& root() const { return root_; }

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
