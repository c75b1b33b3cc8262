#include "OmniraCore/foundation/Log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/systemd_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <memory>

namespace omnira {

namespace {

bool journalReachable() { return access("/run/systemd/journal/socket", W_OK) == 0; }

}  // namespace

void setUpLogging(const std::string& identifier, spdlog::level::level_enum level, LogTarget target) {
  const bool journal = target == LogTarget::journal || (target == LogTarget::automatic && journalReachable());
  std::shared_ptr<spdlog::logger> logger;
  if (journal) {
    auto sink = std::make_shared<spdlog::sinks::systemd_sink_mt>(identifier);
    logger = std::make_shared<spdlog::logger>(identifier, std::move(sink));
  } else {
    auto sink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
    sink->set_pattern("%n: %^%l%$: %v");
    logger = std::make_shared<spdlog::logger>(identifier, std::move(sink));
  }
  logger->set_level(level);
  spdlog::set_default_logger(std::move(logger));
}

}  // namespace omnira
