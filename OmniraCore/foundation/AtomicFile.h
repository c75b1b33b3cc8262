#pragma once
// Whole-file writes that never leave a half-written file behind: the bytes go to a
// temporary file in the same folder, are flushed to the disk, and the temporary file is
// renamed over the old one. A crash or a full disk leaves either the old file or the new
// one, never a mix. Missing folders are created.
//
// Plain functions; safe on any thread as long as two writers do not share one file.

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

struct AtomicFile {
  struct Failure {
    std::string message;  // names the file and the system's reason
  };

  // The file gets `mode`: readable by all by default, as Omnira's own files are.
  static Result<void, Failure> write(const std::filesystem::path& file, std::string_view bytes, mode_t mode = 0644);

  // The whole file. A missing file is `missing`, so callers can tell "nothing saved yet"
  // from "cannot read".
  struct ReadFailure {
    bool missing = false;
    std::string message;
  };
  static Result<std::string, ReadFailure> read(const std::filesystem::path& file);
};

}  // namespace omnira
