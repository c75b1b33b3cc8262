#pragma once
// Small helpers for readers that keep sysfs directories open between ticks and re-read
// a few one-value attribute files each time, without building paths or allocating.
// Used on whichever thread owns the reader; nothing here is shared.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace omnira::platform {

// An open directory descriptor, closed when dropped. Opened with O_DIRECTORY so a
// symlinked entry (class/hwmon/hwmonN) is followed to its device folder.
class DirectoryHandle {
 public:
  DirectoryHandle() = default;
  explicit DirectoryHandle(int fd) : fd_(fd) {}
  DirectoryHandle(DirectoryHandle&& other) noexcept : fd_(other.release()) {}
  DirectoryHandle& operator=(DirectoryHandle&& other) noexcept;
  DirectoryHandle(const DirectoryHandle&) = delete;
  DirectoryHandle& operator=(const DirectoryHandle&) = delete;
  ~DirectoryHandle();

  // An invalid handle when the directory cannot be opened (absent, not a directory, denied).
  static DirectoryHandle open(const std::string& path);
  static DirectoryHandle openAt(int directory, const char* relativePath);

  bool valid() const { return fd_ >= 0; }
  int fd() const { return fd_; }

 private:
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  int fd_ = -1;
};

// Outcome of reading one attribute file. `missing` means the file or its device is gone
// (the reader should look again); `failed` is a read the driver refused this time
// (EIO, ENODATA, EAGAIN from a sleeping device) and says nothing about the layout.
struct AttributeRead {
  enum class Status { ok, missing, failed };
  Status status = Status::failed;
  std::string_view text;  // into the caller's buffer; valid while it lives
};

// Reads up to `size` bytes of `name` under the open `directory` into `buffer`.
AttributeRead readAttributeAt(int directory, const char* name, char* buffer, size_t size);

// The whole attribute as a string without its trailing newline and spaces; absent when unreadable.
std::optional<std::string> readAttributeLineAt(int directory, const char* name);

// Names of the entries of a directory (no "." or ".."), unsorted; empty when it cannot be read.
std::vector<std::string> listDirectory(int directory);
std::vector<std::string> listDirectory(const std::string& path);

// The number after `prefix` in names like "hwmon12", "thermal_zone3", "cpu7"; absent
// when the rest is not all digits.
std::optional<unsigned> numberAfter(std::string_view name, std::string_view prefix);

}  // namespace omnira::platform
