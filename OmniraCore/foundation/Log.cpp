#include "OmniraCore/foundation/Log.h"

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
  if (!journal) return setUpStandardErrorLogging(identifier, level);
  auto sink = std::make_shared<spdlog::sinks::systemd_sink_mt>(identifier);
  auto logger = std::make_shared<spdlog::logger>(identifier, std::move(sink));
  logger->set_level(level);
  spdlog::set_default_logger(std::move(logger));
}

}  // namespace omnira
