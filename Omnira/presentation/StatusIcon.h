#pragma once
// Omnira's icon in the desktop's panel: a small live readout drawn at run time (CPU, memory
// or memory pressure, as a figure or a little graph, chosen by "menuBarReadout" and
// "menuBarShowsGraph") whose colour tells the strain, and its menu. A click asks for the
// drop-down panel; the menu asks for the window, Worth a Look, a pause of notifications,
// a diagnostic report and quitting. What those do is the owner's (Desktop).
//
// Main thread only; reads the store after each tick and never samples. Without a tray
// host the icon is simply not shown; nothing here fails.

#include <QIcon>
#include <QMenu>
#include <QObject>
#include <QRect>
#include <QString>
#include <QSystemTrayIcon>

#include <memory>

#include "OmniraCore/foundation/Settings.h"

namespace omnira {
class MonitorStore;
}

namespace omnira::presentation {

class StatusIcon : public QObject {
  Q_OBJECT

 public:
  enum class Figure { cpu, memory, pressure };
  // The settings this icon reads; the table does not list them yet, so they are read raw.
  static constexpr const char* readoutKey = "menuBarReadout";  // "cpu", "memory" or "pressure"
  static constexpr const char* graphKey = "menuBarShowsGraph";
  static constexpr int graphPoints = 12;

  struct Readout {
    Figure figure = Figure::cpu;
    bool graph = false;
    double fraction = 0;  // of the chosen figure, 0...1
    QString text;         // as the icon and its tooltip show it: "37"
    bool strained = false;
    bool critical = false;  // memory pressure is critical
  };

  StatusIcon(MonitorStore* store, const Settings& settings, QObject* parent = nullptr);
  ~StatusIcon() override;

  void applySettings(const Settings& settings);
  const Readout& readout() const { return readout_; }
  QIcon icon() const { return tray_.icon(); }
  // Where the icon sits on screen; empty when the host does not say.
  QRect geometry() const { return tray_.geometry(); }
  QMenu* menu() { return &menu_; }

  static Figure figureOf(const Settings& settings);

 signals:
  void panelRequested();
  void pageRequested(const QString& page);
  void pauseNotificationsToggled(bool paused);
  void diagnosticReportRequested();
  void quitRequested();

 private:
  void refresh();
  void draw();

  MonitorStore* store_;
  Figure figure_ = Figure::cpu;
  bool graph_ = false;
  Readout readout_;
  QSystemTrayIcon tray_;
  QMenu menu_;
  QAction* worthALook_ = nullptr;
  QAction* pause_ = nullptr;
};

}  // namespace omnira::presentation
