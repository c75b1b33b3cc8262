#include "Omnira/presentation/ChartItem.h"

#include <QAccessible>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QQuickWindow>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/AtomicFile.h"

namespace omnira::presentation {

namespace {

constexpr int kNoteMilliseconds = 6000;

}  // namespace

ChartItem::ChartItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  setAcceptedMouseButtons(Qt::RightButton);
  setActiveFocusOnTab(true);
  connect(this, &ChartItem::appearanceChanged, this, [this] { update(); });
  noteShown_.setSingleShot(true);
  noteShown_.setInterval(kNoteMilliseconds);
  connect(&noteShown_, &QTimer::timeout, this, [this] { note({}); });
}

void ChartItem::paint(QPainter* painter) {
  draw(painter, width(), height());
  const QPalette palette = QGuiApplication::palette();
  if (hasActiveFocus()) {
    painter->setPen(QPen(palette.color(QPalette::Highlight), 1.5));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(1, 1, width() - 2, height() - 2), 4, 4);
  }
  if (!exportNote_.isEmpty()) {
    const QFontMetricsF metrics(painter->font());
    const QString text = metrics.elidedText(exportNote_, Qt::ElideMiddle, std::max(0.0, width() - 24));
    const QRectF box(6, height() - metrics.height() - 14, metrics.horizontalAdvance(text) + 12, metrics.height() + 8);
    painter->setPen(Qt::NoPen);
    painter->setBrush(palette.color(QPalette::ToolTipBase));
    painter->drawRoundedRect(box, 4, 4);
    painter->setPen(palette.color(QPalette::ToolTipText));
    painter->drawText(box, Qt::AlignCenter, text);
  }
}

void ChartItem::draw(QPainter* painter, qreal w, qreal h) const {
  if (w <= 2 || h <= 2) return;
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setPen(QPen(gridColor_, 1));
  for (int line = 1; line < 4; ++line) painter->drawLine(QPointF(0, h * line / 4), QPointF(w, h * line / 4));

  qreal top = maximum_;
  if (top <= 0) {
    top = floor_;
    for (qreal v : values_) top = std::max(top, v);
    for (qreal v : secondValues_) top = std::max(top, v);
  }
  if (bars_) {
    // One slot per value; with a second series each slot holds a pair of bars.
    const int slotCount = static_cast<int>(std::max(values_.size(), secondValues_.size()));
    if (slotCount == 0) return;
    const bool pair = !secondValues_.isEmpty();
    const qreal slot = w / slotCount;
    const qreal gap = std::min(slot * 0.25, 6.0);
    const qreal barWidth = (slot - gap) / (pair ? 2 : 1);
    const auto bar = [&](const QList<qreal>& series, int i, qreal x, const QColor& color) {
      if (i >= series.size()) return;
      const qreal v = std::isfinite(series[i]) ? std::clamp(series[i] / top, 0.0, 1.0) : 0.0;
      if (v <= 0) return;
      // A value above zero shows at least a sliver, so a quiet period is told from an empty one.
      const qreal barHeight = std::max(2.0, v * (h - 1));
      painter->fillRect(QRectF(x, h - barHeight, std::max(1.0, barWidth), barHeight), color);
    };
    for (int i = 0; i < slotCount; ++i) {
      bar(values_, i, i * slot + gap / 2, color_);
      if (pair) bar(secondValues_, i, i * slot + gap / 2 + barWidth, secondColor_);
    }
    return;
  }
  const int points = std::max({span_, static_cast<int>(values_.size()), static_cast<int>(secondValues_.size()), 2});
  const qreal step = w / (points - 1);
  const auto path = [&](const QList<qreal>& series) {
    QPainterPath line;
    const int offset = points - static_cast<int>(series.size());
    for (int i = 0; i < series.size(); ++i) {
      const qreal v = std::isfinite(series[i]) ? std::clamp(series[i] / top, 0.0, 1.0) : 0.0;
      const QPointF at((offset + i) * step, h - 1 - v * (h - 2));
      if (i == 0)
        line.moveTo(at);
      else
        line.lineTo(at);
    }
    return line;
  };

  if (!values_.isEmpty()) {
    QPainterPath line = path(values_);
    QPainterPath area = line;
    area.lineTo(w, h);
    area.lineTo((points - values_.size()) * step, h);
    area.closeSubpath();
    QColor fill = color_;
    fill.setAlphaF(0.18f);
    painter->fillPath(area, fill);
    painter->setPen(QPen(color_, 1.6));
    painter->drawPath(line);
  }
  if (!secondValues_.isEmpty()) {
    painter->setPen(QPen(secondColor_, 1.6));
    painter->drawPath(path(secondValues_));
  }
}

QImage ChartItem::image() const {
  const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
  const QSize size(std::max(1, static_cast<int>(std::ceil(width() * ratio))),
                   std::max(1, static_cast<int>(std::ceil(height() * ratio))));
  QImage picture(size, QImage::Format_ARGB32_Premultiplied);
  picture.setDevicePixelRatio(ratio);
  // On the base colour: a transparent chart pasted elsewhere loses its grid and its fill.
  picture.fill(QGuiApplication::palette().color(QPalette::Base));
  QPainter painter(&picture);
  draw(&painter, width(), height());
  return picture;
}

Result<std::filesystem::path, ChartItem::Failure> ChartItem::savePNG(const std::filesystem::path& folder) const {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  if (!image().save(&buffer, "PNG")) return fail(Failure{"The chart could not be made into a PNG picture."});
  if (auto made = AtomicFile::makeFolders(folder); !made) return fail(Failure{made.error().message});
  // The name given, else what the chart is called for screen readers ("CPU over the last
  // minutes"); no folder separators from either.
  QString given = exportName_.trimmed();
  if (given.isEmpty()) {
    if (QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(const_cast<ChartItem*>(this)))
      given = accessible->text(QAccessible::Name).trimmed();
  }
  std::string name = given.toStdString();
  std::replace(name.begin(), name.end(), '/', '-');
  if (name.empty() || name.starts_with('.')) name = "Omnira chart" + name;
  const std::string_view data(bytes.constData(), static_cast<size_t>(bytes.size()));
  // Created anew, never over an existing file or through a link planted in a shared folder.
  std::filesystem::path file = folder / (name + ".png");
  for (int copy = 2; copy <= 1000; ++copy) {
    auto created = AtomicFile::create(file, data);
    if (created) return file;
    if (!created.error().exists) return fail(Failure{created.error().message});
    file = folder / fmt::format("{} ({}).png", name, copy);
  }
  return fail(Failure{fmt::format("The chart was not saved: {} has too many files named \"{}\".", folder.string(), name)});
}

void ChartItem::saveToDownloads() {
  auto paths = AppPaths::fromProcessEnvironment();
  if (!paths) return note(QString::fromStdString(paths.error().message));
  auto saved = savePNG(paths->downloadsFolder());
  if (!saved) {
    spdlog::warn("{}", saved.error().message);
    return note(QString::fromStdString(saved.error().message));
  }
  note(tr("Saved as %1").arg(QString::fromStdString(saved->string())));
}

void ChartItem::copyImage() {
  QGuiApplication::clipboard()->setImage(image());
  note(tr("Copied"));
}

void ChartItem::note(const QString& text) {
  if (text == exportNote_) return;
  exportNote_ = text;
  if (!text.isEmpty()) noteShown_.start();
  emit exportNoteChanged();
  update();
}

void ChartItem::showMenu() { showMenuAt(QPointF(width() / 2, height() / 2)); }

void ChartItem::showMenuAt(QPointF at) {
  // The menu is a widget: only under a QApplication, which Omnira on the desktop is.
  if (!qobject_cast<QApplication*>(QCoreApplication::instance()) || !window()) return;
  auto* menu = new QMenu();
  menu->setAttribute(Qt::WA_DeleteOnClose);
  menu->addAction(tr("Save as PNG…"), this, &ChartItem::saveToDownloads);
  menu->addAction(tr("Copy"), this, &ChartItem::copyImage);
  menu->popup(mapToGlobal(at).toPoint());
}

void ChartItem::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::RightButton) return QQuickPaintedItem::mousePressEvent(event);
  forceActiveFocus(Qt::MouseFocusReason);
  showMenuAt(event->position());
  event->accept();
}

void ChartItem::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Menu || (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier)) {
    showMenu();
  } else if (event->matches(QKeySequence::Copy)) {
    copyImage();
  } else if (event->matches(QKeySequence::Save)) {
    saveToDownloads();
  } else {
    return QQuickPaintedItem::keyPressEvent(event);
  }
  event->accept();
}

void ChartItem::focusInEvent(QFocusEvent* event) {
  QQuickPaintedItem::focusInEvent(event);
  update();
}

void ChartItem::focusOutEvent(QFocusEvent* event) {
  QQuickPaintedItem::focusOutEvent(event);
  update();
}

}  // namespace omnira::presentation
