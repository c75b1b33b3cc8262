#pragma once
// Logging setup: the systemd journal when one is reachable, otherwise stderr.
// Call once at start, on the main thread, before other threads log.

#include <string>

#include <spdlog/common.h>

namespace omnira {

enum class LogTarget { automatic, journal, standardError };

// `identifier` is the journal's SYSLOG_IDENTIFIER ("omnira").
// With `automatic`, the journal is used when its socket exists.
void setUpLogging(const std::string& identifier, spdlog::level::level_enum level,
                  LogTarget target = LogTarget::automatic);
// Standard error only; never links the journal in (see LogStandardError.cpp).
void setUpStandardErrorLogging(const std::string& identifier, spdlog::level::level_enum level);

}  // namespace omnira
