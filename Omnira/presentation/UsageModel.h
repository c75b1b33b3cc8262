#pragma once
// The AI usage page and the panel's plan rows: for each AI tool turned on, its accounts'
// limit windows (what is left, when it resets, the pace UsageWindow::pace judges) in the
// words `omnira limits` prints, the problems that kept a tool from being read, and the
// tokens of the last seven days by day and by model from the usage-limits store's ledgers.
// Built again when the store changes, and every minute while `active`, as the reset and
// pace texts count down.
//
// Main thread only; reads the store, never asks the providers or reads logs itself.
// Nothing here fails: without a store (no display yet) or with nothing turned on, the
// lists are empty and `emptyText` says why in a sentence.

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>

#include <functional>

#include "OmniraCore/foundation/Date.h"

namespace omnira {
class UsageLimitsStore;
}

namespace omnira::presentation {

class UsageModel : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool hasTools READ hasTools NOTIFY changed)  // any card to show
  Q_PROPERTY(QString emptyText READ emptyText NOTIFY changed)
  // Per tool: name, accounts [{heading, source, windows [{label, left, leftText, resetText,
  // paceText, paceWord, late}]}], problems [sentence], hasTokens, tokensText, todayText,
  // weekText, days [{label, total, totalText}], dayValues, models [{name, total, totalText,
  // share}], modelValues.
  Q_PROPERTY(QVariantList tools READ tools NOTIFY changed)
  // Every window of every account, compact, for the panel: tool, window, left, leftText,
  // resetIn, paceWord, late.
  Q_PROPERTY(QVariantList panelWindows READ panelWindows NOTIFY changed)
  Q_PROPERTY(QString refreshedText READ refreshedText NOTIFY changed)
  // The tools turned on with nothing to show (no plan, no problem, no logs), in one sentence,
  // so they take no card each.
  Q_PROPERTY(QString quietText READ quietText NOTIFY changed)

 public:
  // `clock` is the system clock when empty.
  explicit UsageModel(std::function<Date()> clock = {}, QObject* parent = nullptr);

  // Follows `store` from now on; null to follow none.
  void setStore(UsageLimitsStore* store);
  // Counts the texts down every minute while on.
  void setActive(bool active);

  bool hasTools() const { return !tools_.isEmpty(); }
  QString emptyText() const { return emptyText_; }
  QVariantList tools() const { return tools_; }
  QVariantList panelWindows() const { return panelWindows_; }
  QString refreshedText() const { return refreshedText_; }
  QString quietText() const { return quietText_; }

  // Reads the store again.
  Q_INVOKABLE void refresh();

 signals:
  void changed();

 private:
  UsageLimitsStore* store_ = nullptr;
  std::function<Date()> clock_;
  QTimer minute_;
  QMetaObject::Connection connections_[4];
  QString emptyText_, refreshedText_, quietText_;
  QVariantList tools_, panelWindows_;
};

}  // namespace omnira::presentation
