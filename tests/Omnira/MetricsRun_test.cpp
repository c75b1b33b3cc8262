// The metrics endpoint of the real application, scraped by Debian's Prometheus and checked
// by its promtool, and `omnira metrics` as a textfile collector would run it.

#include <fcntl.h>
#include <stdlib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>
#include <vector>

#include "tests/Omnira/MetricsHTTP.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kPrometheus = "/usr/bin/prometheus";
constexpr const char* kPromtool = "/usr/bin/promtool";

struct Home {
  fs::path root;
  explicit Home(const std::string& name, const std::string& settings)
      : root(fs::temp_directory_path() / (name + "-" + std::to_string(::getpid()))) {
    fs::remove_all(root);
    fs::create_directories(root / "config" / "Omnira");
    fs::create_directories(root / "home");
    std::ofstream(root / "config" / "Omnira" / "settings.json") << settings;
  }
  ~Home() { fs::remove_all(root); }
  fs::path history() const { return root / "data" / "Omnira" / "history.sqlite"; }
};

std::string settingsFor(uint16_t port, const std::string& more = "") {
  return R"({"refreshSeconds": 1, "metricsEnabled": true, "metricsAddress": "127.0.0.1:)" + std::to_string(port) +
         "\"" + more + "}";
}

// Polls until the endpoint answers 200; the guard catches an application that never serves.
std::optional<testing::HTTPAnswer> waitForScrape(uint16_t port, const std::string& headers = "") {
  for (auto until = std::chrono::steady_clock::now() + 90s; std::chrono::steady_clock::now() < until;) {
    if (auto answer = testing::request(port, "GET", "/metrics", headers); answer && answer->status == 200) return answer;
    std::this_thread::sleep_for(200ms);
  }
  return std::nullopt;
}

testing::CommandRun promtoolCheck(const fs::path& file) {
  return testing::runShell(std::string(kPromtool) + " check metrics < '" + file.string() + "' 2>&1");
}

// Debian's Prometheus, with its own port and data folder, scraping `target` every second.
class RunningPrometheus {
 public:
  RunningPrometheus(const fs::path& folder, uint16_t target, uint16_t port) : port_(port) {
    fs::create_directories(folder / "data");
    std::ofstream(folder / "prometheus.yml") << "global:\n  scrape_interval: 1s\n  evaluation_interval: 1s\n"
                                             << "scrape_configs:\n  - job_name: omnira\n    static_configs:\n"
                                             << "      - targets: ['127.0.0.1:" << target << "']\n";
    pid_ = ::fork();
    if (pid_ == 0) {
      const int log = ::open((folder / "prometheus.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      ::dup2(log, STDOUT_FILENO);
      ::dup2(log, STDERR_FILENO);
      const std::string config = "--config.file=" + (folder / "prometheus.yml").string();
      const std::string storage = "--storage.tsdb.path=" + (folder / "data").string();
      const std::string listen = "--web.listen-address=127.0.0.1:" + std::to_string(port);
      ::execl(kPrometheus, kPrometheus, config.c_str(), storage.c_str(), listen.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  ~RunningPrometheus() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  // The instant vector of `query`, once it is not empty; empty when the guard ran out.
  nlohmann::json waitForResult(const std::string& query) const {
    std::string encoded;
    for (const unsigned char c : query) {
      if (std::isalnum(c) || c == '_') encoded += static_cast<char>(c);
      else encoded += fmt::format("%{:02X}", c);
    }
    for (auto until = std::chrono::steady_clock::now() + 90s; std::chrono::steady_clock::now() < until;) {
      if (auto answer = testing::request(port_, "GET", "/api/v1/query?query=" + encoded); answer && answer->status == 200) {
        const auto json = nlohmann::json::parse(answer->body, nullptr, false);
        if (!json.is_discarded() && json.contains("data") && !json["data"]["result"].empty()) return json["data"]["result"];
      }
      std::this_thread::sleep_for(500ms);
    }
    return nlohmann::json::array();
  }

 private:
  pid_t pid_ = -1;
  uint16_t port_;
};

TEST(MetricsRun, PrometheusScrapesTheRunningApplicationAndPromtoolAcceptsIt) {
  if (!fs::exists(kPrometheus) || !fs::exists(kPromtool))
    GTEST_SKIP() << "Debian's prometheus is not installed (scripts/install-deps installs it).";
  const uint16_t port = testing::freePort();
  Home home("omnira-metrics-run", settingsFor(port));
  testing::RunningOmnira omnira(home.root);
  auto scrape = waitForScrape(port);
  ASSERT_TRUE(scrape) << testing::slurp(home.root / "stderr");
  EXPECT_NE(scrape->body.find("\nomnira_app_cpu_seconds_total{app=\""), std::string::npos);
  std::ofstream(home.root / "scrape.txt") << scrape->body;
  const auto checked = promtoolCheck(home.root / "scrape.txt");
  EXPECT_EQ(checked.status, 0) << checked.out;

  auto open = waitForScrape(port, "Accept: application/openmetrics-text; version=1.0.0\r\n");
  ASSERT_TRUE(open);
  EXPECT_TRUE(open->body.ends_with("# EOF\n"));

  RunningPrometheus prometheus(home.root / "prometheus", port, testing::freePort());
  // Two scrapes at least, of a machine series and of an app series.
  const auto machine = prometheus.waitForResult("count_over_time(omnira_memory_total_bytes[1m]) >= 2");
  ASSERT_EQ(machine.size(), 1u) << testing::slurp(home.root / "prometheus" / "prometheus.log");
  const auto apps = prometheus.waitForResult("omnira_app_processes > 0");
  ASSERT_FALSE(apps.empty());
  EXPECT_TRUE(apps[0]["metric"].contains("app"));
  EXPECT_TRUE(apps[0]["metric"].contains("kind"));
  const auto up = prometheus.waitForResult("up{job=\"omnira\"} == 1");
  EXPECT_EQ(up.size(), 1u);
}

TEST(MetricsRun, KeepsTickingAndAnsweringWhileClientsHoldTheEndpoint) {
  testing::raiseDescriptorLimit();
  const uint16_t port = testing::freePort();
  Home home("omnira-metrics-load", settingsFor(port, R"(, "metricsToken": "let-me-in")"));
  testing::RunningOmnira omnira(home.root);
  ASSERT_TRUE(waitForScrape(port, "Authorization: Bearer let-me-in\r\n")) << testing::slurp(home.root / "stderr");
  ASSERT_TRUE(testing::waitForRecorded(home.history(), 1));

  std::vector<int> idle;
  for (int i = 0; i < 1000; ++i) {
    const int fd = testing::connectTo(port);
    ASSERT_GE(fd, 0) << "connection " << i;
    idle.push_back(fd);
  }
  std::atomic<bool> stop{false};
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([port, &stop] {
      while (!stop) {
        const int fd = testing::connectTo(port);
        for (const char c : std::string("GET /metrics HTTP/1.1\r\nHost: slow\r\n")) {
          if (stop || !testing::sendAll(fd, std::string(1, c))) break;
          std::this_thread::sleep_for(100ms);
        }
        ::close(fd);
      }
    });
  }
  std::atomic<int> refused{0};
  clients.emplace_back([port, &stop, &refused] {
    while (!stop) {
      auto answer = testing::request(port, "GET", "/metrics", "Authorization: Bearer guess\r\n");
      if (answer && answer->status == 401) ++refused;
    }
  });

  // Ticks go on being recorded under the load, and an honest scrape is answered.
  const double before = testing::recordedSeconds(home.history());
  EXPECT_TRUE(testing::waitForRecorded(home.history(), before + 3));
  const auto honest = testing::request(port, "GET", "/metrics", "Authorization: Bearer let-me-in\r\n");
  ASSERT_TRUE(honest);
  EXPECT_EQ(honest->status, 200);
  EXPECT_NE(honest->body.find("omnira_tick_duration_seconds_count "), std::string::npos);

  stop = true;
  for (auto& t : clients) t.join();
  for (const int fd : idle) ::close(fd);
  EXPECT_GT(refused, 0);
  EXPECT_EQ(omnira.stop(), 0);
}

TEST(MetricsRun, RefusesAnOpenAddressWithoutATokenAndFollowsTheSettings) {
  const uint16_t port = testing::freePort();
  Home home("omnira-metrics-open", R"({"refreshSeconds": 1, "metricsEnabled": true, "metricsAddress": "0.0.0.0:)" +
                                       std::to_string(port) + "\"}");
  testing::RunningOmnira omnira(home.root);
  ASSERT_TRUE(testing::waitForRecorded(home.history(), 1)) << testing::slurp(home.root / "stderr");
  EXPECT_LT(testing::connectTo(port), 0);
  if (::access("/run/systemd/journal/socket", W_OK) != 0) {  // else the line went to the journal
    EXPECT_NE(testing::slurp(home.root / "stderr").find("needs a token (set metricsToken)"), std::string::npos)
        << testing::slurp(home.root / "stderr");
  }

  // Mended while it runs: it listens on loopback; turned off: it stops listening.
  const auto settings = home.root / "config" / "Omnira" / "settings.json";
  std::ofstream(settings) << settingsFor(port);
  ASSERT_TRUE(waitForScrape(port)) << testing::slurp(home.root / "stderr");
  std::ofstream(settings) << R"({"refreshSeconds": 1, "metricsEnabled": false})";
  bool closed = false;
  for (auto until = std::chrono::steady_clock::now() + 60s; !closed && std::chrono::steady_clock::now() < until;) {
    const int fd = testing::connectTo(port);
    closed = fd < 0;
    if (fd >= 0) ::close(fd);
    std::this_thread::sleep_for(200ms);
  }
  EXPECT_TRUE(closed);
  EXPECT_EQ(omnira.stop(), 0);
}

TEST(MetricsRun, TheCommandPrintsWhatPromtoolAccepts) {
  if (!fs::exists(kPromtool)) GTEST_SKIP() << "Debian's promtool is not installed (scripts/install-deps installs it).";
  Home home("omnira-metrics-command", R"({"metricsMaxApps": 3})");
  const auto run = testing::runCommandIn(home.root, "metrics > '" + (home.root / "out.txt").string() + "'", false);
  ASSERT_EQ(run.status, 0);
  const auto text = testing::slurp(home.root / "out.txt");
  EXPECT_NE(text.find("\nomnira_cpu_seconds_total{mode=\"nice\"} "), std::string::npos) << text;
  EXPECT_NE(text.find("\nomnira_memory_total_bytes "), std::string::npos);
  EXPECT_NE(text.find("\nomnira_self_resident_bytes "), std::string::npos);
  size_t apps = 0;
  for (size_t at = 0; (at = text.find("\nomnira_app_processes{", at)) != std::string::npos; ++at) ++apps;
  EXPECT_GE(apps, 1u);
  EXPECT_LE(apps, 4u);  // three of their own at most, and "other"
  const auto checked = promtoolCheck(home.root / "out.txt");
  EXPECT_EQ(checked.status, 0) << checked.out;

  const auto open = testing::runCommandIn(home.root, "metrics --openmetrics", false);
  EXPECT_TRUE(open.out.ends_with("# EOF\n"));
}

}  // namespace
}  // namespace omnira
