#include "Omnira/presentation/UsageModel.h"

#include <QDate>
#include <QStringList>
#include <QVariantMap>

#include "Omnira/UsageLimitsStore.h"
#include "Omnira/presentation/Figures.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/UsageWindowText.h"

namespace omnira::presentation {

namespace {

double secondsBetween(Date from, Date to) { return std::chrono::duration<double>(to - from).count(); }

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

QVariantMap windowRow(const UsageWindow& window, Date now) {
  QVariantMap row;
  row[QStringLiteral("label")] = nameText(windowLabel(window));
  row[QStringLiteral("left")] = window.left();
  row[QStringLiteral("leftText")] = text(leftText(window));
  row[QStringLiteral("resetText")] = text(resetText(window, now));
  // The panel's short form: "3h 27m", "now".
  QString resetIn;
  if (window.resetsAt()) {
    resetIn = text(spanText(secondsBetween(now, *window.resetsAt())));
    if (resetIn.isEmpty()) resetIn = UsageModel::tr("now");
  }
  row[QStringLiteral("resetIn")] = resetIn;
  // The core's judgement; nothing when it is too early or too late in the window to tell.
  const auto judged = window.pace(now);
  const bool late = judged && !judged->isOnPace();
  const QString pace = text(paceText(window, now));
  const QString word = !judged ? QString() : late ? UsageModel::tr("Too fast") : UsageModel::tr("On pace");
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
      const QString ago = text(spanText(secondsBetween(*store_->refreshedAt(), now)));
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
        row[QStringLiteral("todayText")] = tr("%1 today").arg(text(compactCount(summary->today.total())));
        row[QStringLiteral("weekText")] = tr("%1 in the last 7 days").arg(text(compactCount(summary->week.total())));
        QVariantList days, dayValues, dayLabels;
        for (size_t i = 0; i < summary->days.size(); ++i) {
          const QDate date = QDate::fromString(QString::fromStdString(summary->days[i]), QStringLiteral("yyyy-MM-dd"));
          const QString label = i + 1 == summary->days.size() ? tr("Today") : date.toString(QStringLiteral("ddd"));
          const int64_t total = i < summary->daily.size() ? summary->daily[i] : 0;
          days << QVariantMap{{QStringLiteral("label"), label}, {QStringLiteral("total"), static_cast<qreal>(total)},
                              {QStringLiteral("totalText"), text(compactCount(total))}};
          dayValues << static_cast<qreal>(total);
        }
        QVariantList models, modelValues;
        const int64_t largest = summary->byModel.empty() ? 0 : summary->byModel.front().second.total();
        for (const auto& [model, usage] : summary->byModel) {
          const int64_t total = usage.total();
          models << QVariantMap{{QStringLiteral("name"), nameText(TokenLogs::modelName(model))},
                                {QStringLiteral("total"), static_cast<qreal>(total)},
                                {QStringLiteral("totalText"), text(compactCount(total))},
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
