#pragma once
// What the program logs while one of these lives, one message per line; the logger that
// was there before is put back afterwards.

#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace omnira::testing {

class CapturedLog {
 public:
  CapturedLog() : previous_(spdlog::default_logger()) {
    auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out_);
    sink->set_pattern("%l %v");
    auto logger = std::make_shared<spdlog::logger>("captured", std::move(sink));
    logger->set_level(spdlog::level::info);
    spdlog::set_default_logger(std::move(logger));
  }
  ~CapturedLog() { spdlog::set_default_logger(previous_); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  // Every line so far, as "<level> <message>".
  std::vector<std::string> lines() const {
    std::vector<std::string> found;
    std::istringstream in(out_.str());
    for (std::string line; std::getline(in, line);) found.push_back(line);
    return found;
  }
  // The lines that contain `text`.
  std::vector<std::string> containing(const std::string& text) const {
    std::vector<std::string> found;
    for (auto& line : lines())
      if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
  }
  void clear() { out_.str({}); }

 private:
  std::ostringstream out_;
  std::shared_ptr<spdlog::logger> previous_;
};

}  // namespace omnira::testing
