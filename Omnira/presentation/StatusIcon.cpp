#include "Omnira/presentation/StatusIcon.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <algorithm>
#include <cmath>

#include "Omnira/MonitorStore.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira::presentation {

namespace {

double figureOf(const SystemSample& sample, StatusIcon::Figure figure) {
  switch (figure) {
    case StatusIcon::Figure::cpu: return sample.cpu();
    case StatusIcon::Figure::memory: return sample.memoryUsedFraction();
    case StatusIcon::Figure::pressure: return sample.memoryPressureFraction;
  }
  return 0;
}

const char* figureName(StatusIcon::Figure figure) {
  switch (figure) {
    case StatusIcon::Figure::cpu: return QT_TR_NOOP("CPU");
    case StatusIcon::Figure::memory: return QT_TR_NOOP("Memory");
    case StatusIcon::Figure::pressure: return QT_TR_NOOP("Memory pressure");
  }
  return "";
}

}  // namespace

StatusIcon::StatusIcon(MonitorStore* store, const Settings& settings, QObject* parent)
    : QObject(parent), store_(store) {
  auto* open = menu_.addAction(tr("Open Omnira"));
  connect(open, &QAction::triggered, this, [this] { emit pageRequested(QStringLiteral("overview")); });
  worthALook_ = menu_.addAction(tr("Worth a Look"));
  connect(worthALook_, &QAction::triggered, this, [this] { emit pageRequested(QStringLiteral("overview")); });
  menu_.addSeparator();
  pause_ = menu_.addAction(tr("Pause Notifications"));
  pause_->setCheckable(true);
  connect(pause_, &QAction::triggered, this, [this](bool checked) { emit pauseNotificationsToggled(checked); });
  connect(menu_.addAction(tr("Copy Diagnostic Report")), &QAction::triggered, this,
          &StatusIcon::diagnosticReportRequested);
  menu_.addSeparator();
  connect(menu_.addAction(tr("Quit Omnira")), &QAction::triggered, this, &StatusIcon::quitRequested);
  tray_.setContextMenu(&menu_);
  connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger) emit panelRequested();
    if (reason == QSystemTrayIcon::DoubleClick) emit pageRequested(QStringLiteral("overview"));
  });
  connect(store_, &MonitorStore::ticked, this, &StatusIcon::refresh);
  connect(store_, &MonitorStore::insightsChanged, this, &StatusIcon::refresh);
  applySettings(settings);
  tray_.show();
}

StatusIcon::~StatusIcon() { tray_.setContextMenu(nullptr); }

StatusIcon::Figure StatusIcon::figureOf(const Settings& settings) {
  const std::string chosen = settings.string(readoutKey, "cpu");
  if (chosen == "memory") return Figure::memory;
  if (chosen == "pressure") return Figure::pressure;
  return Figure::cpu;
}

void StatusIcon::applySettings(const Settings& settings) {
  figure_ = figureOf(settings);
  graph_ = settings.boolean(graphKey, false);
  pause_->setChecked(!settings.boolean(SettingsKeys::insightNotifications));
  refresh();
}

void StatusIcon::refresh() {
  Readout next;
  next.figure = figure_;
  next.graph = graph_;
  if (const auto& sample = store_->system()) {
    next.fraction = std::clamp(presentation::figureOf(*sample, figure_), 0.0, 1.0);
    next.text = QString::number(std::lround(next.fraction * 100));
    next.critical = sample->pressure == MemoryPressure::critical;
  }
  next.strained = !store_->strainSince().empty();
  const size_t count = store_->insights().size();
  worthALook_->setText(count == 0 ? tr("Worth a Look") : tr("Worth a Look (%1)").arg(count));
  tray_.setToolTip(next.text.isEmpty() ? tr("Omnira: starting")
                                       : tr("Omnira: %1 %2 %").arg(tr(figureName(figure_)), next.text) +
                                             (next.strained ? tr(", under strain") : QString()));
  const bool redraw = next.text != readout_.text || next.strained != readout_.strained ||
                      next.critical != readout_.critical || next.figure != readout_.figure ||
                      next.graph != readout_.graph || graph_ || tray_.icon().isNull();
  readout_ = next;
  if (redraw) draw();
}

void StatusIcon::draw() {
  // Drawn large and scaled down by the host: trays ask for 16 to 48 pixels.
  constexpr int size = 64;
  QPixmap pixmap(size, size);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  // Calm unless something is strained: the colour carries the state, not decoration.
  const QColor state = readout_.critical ? QColor(0xdc, 0x26, 0x26)
                       : readout_.strained ? QColor(0xf5, 0x9e, 0x0b)
                                           : QColor(0x22, 0xc5, 0x5e);
  QPainterPath frame;
  frame.addRoundedRect(QRectF(2, 2, size - 4, size - 4), 12, 12);
  painter.fillPath(frame, QColor(0x1f, 0x29, 0x37));

  if (readout_.graph) {
    const auto& history = store_->systemHistory();
    const size_t shown = std::min<size_t>(history.size(), graphPoints);
    const double barWidth = (size - 12.0) / graphPoints;
    for (size_t i = 0; i < shown; ++i) {
      const auto& point = history[history.size() - shown + i];
      const double value = std::clamp(presentation::figureOf(point, figure_), 0.0, 1.0);
      const double height = std::max(3.0, value * (size - 14));
      const double x = 6 + (graphPoints - shown + i) * barWidth;
      painter.fillRect(QRectF(x, size - 7 - height, barWidth - 1.5, height), state);
    }
  } else {
    // A bar along the bottom for the share, the figure above it.
    painter.fillRect(QRectF(8, size - 14, size - 16, 6), QColor(255, 255, 255, 50));
    painter.fillRect(QRectF(8, size - 14, (size - 16) * readout_.fraction, 6), state);
    QFont font;
    font.setBold(true);
    font.setPixelSize(readout_.text.size() > 2 ? 24 : 32);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QRectF(0, 4, size, size - 20), Qt::AlignCenter, readout_.text.isEmpty() ? QStringLiteral("·") : readout_.text);
  }
  painter.end();
  tray_.setIcon(QIcon(pixmap));
}

}  // namespace omnira::presentation
