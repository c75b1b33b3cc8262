#include "Omnira/presentation/ChartItem.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace omnira::presentation {

ChartItem::ChartItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  connect(this, &ChartItem::appearanceChanged, this, [this] { update(); });
}

void ChartItem::paint(QPainter* painter) {
  const qreal w = width(), h = height();
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

}  // namespace omnira::presentation
