// Kept apart from the journal sink so that the command, which only ever logs to standard
// error, neither links nor loads the journal's library and the compressors behind it:
// loading them was a good part of what a one-shot `omnira snapshot` cost.

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <memory>

#include "OmniraCore/foundation/Log.h"

namespace omnira {

void setUpStandardErrorLogging(const std::string& identifier, spdlog::level::level_enum level) {
  auto sink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
  sink->set_pattern("%n: %^%l%$: %v");
  auto logger = std::make_shared<spdlog::logger>(identifier, std::move(sink));
  logger->set_level(level);
  spdlog::set_default_logger(std::move(logger));
}

}  // namespace omnira
