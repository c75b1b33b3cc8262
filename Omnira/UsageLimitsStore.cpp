#include "Omnira/UsageLimitsStore.h"

#include <QMetaObject>

#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>

#include "OmniraCore/usage/CurlTransport.h"

namespace omnira {

UsageLimitsStore::UsageLimitsStore(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)), settings_(options_.settings) {
  if (!options_.environment) options_.environment = UsageRefresh::processEnvironment();
  if (!options_.fetcher) options_.fetcher = std::make_shared<UsageFetcher>(std::make_shared<CurlTransport>());
  cacheFile_ = options_.paths.dataFile(UsageLimitsCache::fileName);
  tools_ = UsageRefresh::tools(settings_);

  state_ = UsageLimitsCache::loadOrEmpty(cacheFile_);

  timer_.setInterval(periodMilliseconds);
  connect(&timer_, &QTimer::timeout, this, [this] { refreshIfStale(); });
}

UsageLimitsStore::~UsageLimitsStore() {
  timer_.stop();
  // The outcome's queued call dies with this object; only the thread is waited for.
  if (worker_.joinable()) worker_.join();
}

void UsageLimitsStore::start() {
  refreshIfStale();
  timer_.start();
}

Date UsageLimitsStore::now() const { return options_.clock ? options_.clock() : std::chrono::system_clock::now(); }

std::vector<UsageTool> UsageLimitsStore::toolsShown() const {
  std::vector<UsageTool> shown;
  for (const UsageTool tool : tools_) {
    const auto ofTool = [tool](const auto& item) { return item.tool == tool; };
    if (std::any_of(state_.accounts.begin(), state_.accounts.end(), ofTool) ||
        std::any_of(state_.problems.begin(), state_.problems.end(), ofTool))
      shown.push_back(tool);
  }
  return shown;
}

bool UsageLimitsStore::refreshIfStale() {
  if (isRefreshing_ || !enabled()) return false;
  if (state_.refreshedAt) {
    const double since = std::chrono::duration<double>(now() - *state_.refreshedAt).count();
    // A last refresh in the future means the clock was set back: that one says nothing.
    if (since >= 0 && since < minimumInterval) return false;
  }
  refresh();
  return true;
}

void UsageLimitsStore::refresh() {
  if (!enabled()) return;
  if (isRefreshing_) {
    again_ = true;
    return;
  }
  if (worker_.joinable()) worker_.join();
  setRefreshing(true);

  UsageRefresh::Request request{tools_, state_.accounts, state_.ledgers, now(), TokenSummary::weekDays,
                                options_.clock};
  worker_ = std::thread([this, request = std::move(request), fetcher = options_.fetcher,
                         environment = options_.environment, calendar = options_.calendar]() mutable {
    auto outcome = UsageRefresh::run(std::move(request), *fetcher, environment, calendar);
    QMetaObject::invokeMethod(
        this, [this, outcome = std::move(outcome)]() mutable { apply(std::move(outcome)); }, Qt::QueuedConnection);
  });
}

void UsageLimitsStore::apply(UsageRefresh::Outcome outcome) {
  if (worker_.joinable()) worker_.join();
  // Settings may have turned tools off while the refresh ran; their figures do not show.
  const auto isOn = [this](UsageTool tool) { return std::find(tools_.begin(), tools_.end(), tool) != tools_.end(); };
  std::erase_if(outcome.accounts, [&](const UsageAccount& account) { return !isOn(account.tool); });
  std::erase_if(outcome.problems, [&](const UsageProblem& problem) { return !isOn(problem.tool); });

  if (outcome.accounts != state_.accounts) {
    state_.accounts = std::move(outcome.accounts);
    emit accountsChanged();
  }
  if (outcome.problems != state_.problems) {
    state_.problems = std::move(outcome.problems);
    emit problemsChanged();
  }
  if (outcome.ledgers != state_.ledgers) {
    state_.ledgers = std::move(outcome.ledgers);
    emit ledgersChanged();
  }
  state_.refreshedAt = outcome.refreshedAt;
  emit refreshedAtChanged();
  setRefreshing(false);

  if (auto saved = state_.save(cacheFile_); !saved)
    spdlog::warn("The usage-limits cache was not written: {}", saved.error().message);
  emit refreshed();

  if (again_) {
    again_ = false;
    refresh();
  }
}

void UsageLimitsStore::setRefreshing(bool refreshing) {
  if (isRefreshing_ == refreshing) return;
  isRefreshing_ = refreshing;
  emit isRefreshingChanged();
}

std::optional<TokenSummary> UsageLimitsStore::tokens(UsageTool tool, Date now) const {
  auto ledger = state_.ledgers.find(tool);
  if (ledger == state_.ledgers.end()) return std::nullopt;
  return TokenSummary::of(ledger->second, now, TokenSummary::weekDays, options_.calendar);
}

void UsageLimitsStore::applySettings(const Settings& settings) {
  settings_ = settings;
  auto tools = UsageRefresh::tools(settings_);
  if (tools == tools_) return;
  const bool added = std::any_of(tools.begin(), tools.end(), [this](UsageTool tool) {
    return std::find(tools_.begin(), tools_.end(), tool) == tools_.end();
  });
  tools_ = std::move(tools);
  emit toolsChanged();
  if (added) refresh();
}

}  // namespace omnira
