#pragma once
// The person's panel as a window of Omnira's own: it comes to the front, stays above other
// windows, and is worked by keyboard (Return quits, Escape says no, Tab reaches the check
// box). Closing it is a no. Main thread only; needs a QApplication.

#include <QDialog>
#include <QPointer>

#include <functional>
#include <memory>

#include "Omnira/QuitRequestPanel.h"

class QCheckBox;
class QPushButton;

namespace omnira {

class QuitRequestWindow : public QuitRequestPanel {
 public:
  QuitRequestWindow() = default;
  ~QuitRequestWindow() override;
  void ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) override;
  void close() override;

  // The open window, for tests and screenshots; null when none is open.
  QDialog* window() const { return dialog_.data(); }
  static constexpr const char* kQuitButton = "quit";       // object names
  static constexpr const char* kKeepButton = "keep";
  static constexpr const char* kAllowFolder = "allowFolder";

 private:
  QPointer<QDialog> dialog_;
  std::shared_ptr<std::function<void(QuitAnswer)>> closeAnswer_;  // emptied to silence the answer
};

}  // namespace omnira
