#include "Omnira/presentation/UsageModel.h"

#include <QDate>
#include <QStringList>
#include <QVariantMap>

#include <cmath>

#include "Omnira/UsageLimitsStore.h"
#include "Omnira/presentation/Figures.h"
#include "OmniraCore/usage/TokenLogs.h"

namespace omnira::presentation {

namespace {

double secondsBetween(Date from, Date to) { return std::chrono::duration<double>(to - from).count(); }

// As the command writes them: "4d 20h", "3h 27m", "45m"; under a minute is empty.
QString spanText(double seconds) {
  if (!(seconds >= 60)) return {};
  const auto total = static_cast<int64_t>(seconds);
  const int64_t days = total / 86400, hours = total % 86400 / 3600, minutes = total % 3600 / 60;
  if (days > 0) return QStringLiteral("%1d %2h").arg(days).arg(hours);
  if (hours > 0) return QStringLiteral("%1h %2m").arg(hours).arg(minutes);
  return QStringLiteral("%1m").arg(minutes);
}

QString windowLabel(const UsageWindow& window) {
  using Kind = UsageWindow::Kind;
  QString label;
  switch (window.kind()) {
    case Kind::session: label = UsageModel::tr("Session"); break;
    case Kind::week: label = UsageModel::tr("Week"); break;
    case Kind::model: label = UsageModel::tr("Week"); break;
    case Kind::month: label = UsageModel::tr("Month"); break;
    case Kind::premium: label = UsageModel::tr("Premium requests this month"); break;
    case Kind::chat: label = UsageModel::tr("Chat this month"); break;
    case Kind::completions: label = UsageModel::tr("Completions this month"); break;
    case Kind::cycle: label = UsageModel::tr("This billing cycle"); break;
    case Kind::cursorModels: label = UsageModel::tr("Cursor’s models"); break;
    case Kind::otherModels: label = UsageModel::tr("Other models"); break;
    case Kind::modelSession: label = UsageModel::tr("Session"); break;
  }
  if (window.model()) label += QStringLiteral(" · ") + nameText(*window.model());
  return label;
}

QString compactCount(int64_t count) {
  const double value = static_cast<double>(count);
  if (count < 1000) return QString::number(count);
  if (count < 1'000'000) return QStringLiteral("%1K").arg(value / 1e3, 0, 'f', 1);
  if (count < 1'000'000'000) return QStringLiteral("%1M").arg(value / 1e6, 0, 'f', 1);
  return QStringLiteral("%1B").arg(value / 1e9, 0, 'f', 1);
}

QVariantMap windowRow(const UsageWindow& window, Date now) {
  QVariantMap row;
  row[QStringLiteral("label")] = windowLabel(window);
  row[QStringLiteral("left")] = window.left();
  row[QStringLiteral("leftText")] = UsageModel::tr("%1% left").arg(std::lround(window.left() * 100));
  QString reset, resetIn;
  if (window.resetsAt()) {
    resetIn = spanText(secondsBetween(now, *window.resetsAt()));
    reset = resetIn.isEmpty() ? UsageModel::tr("Resets any moment") : UsageModel::tr("Resets in %1").arg(resetIn);
    if (resetIn.isEmpty()) resetIn = UsageModel::tr("now");
  }
  row[QStringLiteral("resetText")] = reset;
  row[QStringLiteral("resetIn")] = resetIn;
  QString pace, word;
  bool late = false;
  // The core's judgement; nothing when it is too early or too late in the window to tell.
  if (const auto judged = window.pace(now)) {
    if (judged->isOnPace()) {
      pace = UsageModel::tr("On pace · %1% to spare").arg(std::lround(judged->spareAtReset * 100));
      word = UsageModel::tr("On pace");
    } else {
      const QString in = spanText(secondsBetween(now, judged->runsOutAt));
      pace = in.isEmpty() ? UsageModel::tr("Runs out any moment at this rate")
                          : UsageModel::tr("Runs out in %1 at this rate").arg(in);
      word = UsageModel::tr("Too fast");
      late = true;
    }
  }
  row[QStringLiteral("paceText")] = pace;
  row[QStringLiteral("paceWord")] = word;
  row[QStringLiteral("late")] = late;
  return row;
}

}  // namespace

UsageModel::UsageModel(std::function<Date()> clock, QObject* parent)
    : QObject(parent), clock_(clock ? std::move(clock) : [] { return std::chrono::system_clock::now(); }) {
  minute_.setInterval(60'000);
  connect(&minute_, &QTimer::timeout, this, &UsageModel::refresh);
  refresh();
}

void UsageModel::setStore(UsageLimitsStore* store) {
  for (auto& connection : connections_) disconnect(connection);
  store_ = store;
  if (store_) {
    connections_[0] = connect(store_, &UsageLimitsStore::accountsChanged, this, &UsageModel::refresh);
    connections_[1] = connect(store_, &UsageLimitsStore::problemsChanged, this, &UsageModel::refresh);
    connections_[2] = connect(store_, &UsageLimitsStore::ledgersChanged, this, &UsageModel::refresh);
    connections_[3] = connect(store_, &UsageLimitsStore::toolsChanged, this, &UsageModel::refresh);
  }
  refresh();
}

void UsageModel::setActive(bool active) {
  if (active == minute_.isActive()) return;
  if (active) {
    refresh();
    minute_.start();
  } else {
    minute_.stop();
  }
}

void UsageModel::refresh() {
  const Date now = clock_();
  QVariantList tools, panel;
  QString empty, refreshed, quiet;
  QStringList quietTools;
  if (!store_ || !store_->enabled()) {
    empty = tr("AI plan limits are turned off. Turn them on in the settings to see what your plans have left.");
  } else if (store_->tools().empty()) {
    empty = tr("No AI tool is turned on. Turn one on in the settings to see its plan here.");
  } else {
    if (store_->refreshedAt()) {
      const QString ago = spanText(secondsBetween(*store_->refreshedAt(), now));
      refreshed = ago.isEmpty() ? tr("Updated just now") : tr("Updated %1 ago").arg(ago);
    }
    for (const UsageTool tool : store_->tools()) {
      const QString name = QString::fromUtf8(displayName(tool).data(), static_cast<qsizetype>(displayName(tool).size()));
      QVariantMap row;
      row[QStringLiteral("name")] = name;
      QVariantList accounts, problems;
      for (const auto& account : store_->accounts()) {
        if (account.tool != tool) continue;
        QString heading = nameText(account.label);
        if (account.plan) heading += QStringLiteral(" · ") + nameText(*account.plan);
        QVariantList windows;
        for (const auto& window : account.windows) {
          QVariantMap shown = windowRow(window, now);
          windows << shown;
          shown[QStringLiteral("tool")] = name;
          panel << shown;
        }
        QVariantMap entry;
        entry[QStringLiteral("heading")] = heading;
        entry[QStringLiteral("source")] = account.source == UsageAccount::Source::toolFiles
                                              ? tr("From %1’s own logs").arg(name)
                                              : tr("As the provider last answered");
        entry[QStringLiteral("windows")] = windows;
        accounts << entry;
      }
      for (const auto& problem : store_->problems())
        if (problem.tool == tool) problems << nameText(problem.line());
      row[QStringLiteral("accounts")] = accounts;
      row[QStringLiteral("problems")] = problems;
      row[QStringLiteral("plansText")] =
          accounts.isEmpty() && problems.isEmpty() ? tr("No plan has been read for %1 yet.").arg(name) : QString();

      const bool keepsLogs = UsageRefresh::keepsLogs(tool);
      const auto summary = keepsLogs ? store_->tokens(tool, now) : std::nullopt;
      if (accounts.isEmpty() && problems.isEmpty() && !summary) {
        quietTools << name;
        continue;
      }
      row[QStringLiteral("keepsLogs")] = keepsLogs;
      row[QStringLiteral("hasTokens")] = summary.has_value();
      row[QStringLiteral("tokensText")] =
          keepsLogs && !summary ? tr("No token logs of %1 were found on this computer.").arg(name) : QString();
      if (summary) {
        row[QStringLiteral("todayText")] = tr("%1 today").arg(compactCount(summary->today.total()));
        row[QStringLiteral("weekText")] = tr("%1 in the last 7 days").arg(compactCount(summary->week.total()));
        QVariantList days, dayValues, dayLabels;
        for (size_t i = 0; i < summary->days.size(); ++i) {
          const QDate date = QDate::fromString(QString::fromStdString(summary->days[i]), QStringLiteral("yyyy-MM-dd"));
          const QString label = i + 1 == summary->days.size() ? tr("Today") : date.toString(QStringLiteral("ddd"));
          const int64_t total = i < summary->daily.size() ? summary->daily[i] : 0;
          days << QVariantMap{{QStringLiteral("label"), label}, {QStringLiteral("total"), static_cast<qreal>(total)},
                              {QStringLiteral("totalText"), compactCount(total)}};
          dayValues << static_cast<qreal>(total);
        }
        QVariantList models, modelValues;
        const int64_t largest = summary->byModel.empty() ? 0 : summary->byModel.front().second.total();
        for (const auto& [model, usage] : summary->byModel) {
          const int64_t total = usage.total();
          models << QVariantMap{{QStringLiteral("name"), nameText(TokenLogs::modelName(model))},
                                {QStringLiteral("total"), static_cast<qreal>(total)},
                                {QStringLiteral("totalText"), compactCount(total)},
                                {QStringLiteral("share"), largest > 0 ? static_cast<double>(total) / largest : 0.0}};
          modelValues << static_cast<qreal>(total);
        }
        row[QStringLiteral("days")] = days;
        row[QStringLiteral("dayValues")] = dayValues;
        row[QStringLiteral("models")] = models;
        row[QStringLiteral("modelValues")] = modelValues;
      }
      tools << row;
    }
    if (!quietTools.isEmpty()) {
      const QString names = quietTools.size() == 1 ? quietTools.front()
                                                   : tr("%1 and %2").arg(quietTools.mid(0, quietTools.size() - 1).join(QStringLiteral(", ")), quietTools.back());
      quiet = tools.isEmpty() ? tr("Nothing has been read yet for %1.").arg(names)
                              : tr("Also turned on, with nothing read yet: %1.").arg(names);
    }
  }
  if (tools == tools_ && panel == panelWindows_ && empty == emptyText_ && refreshed == refreshedText_ &&
      quiet == quietText_)
    return;
  tools_ = std::move(tools);
  panelWindows_ = std::move(panel);
  emptyText_ = std::move(empty);
  refreshedText_ = std::move(refreshed);
  quietText_ = std::move(quiet);
  emit changed();
}

}  // namespace omnira::presentation
