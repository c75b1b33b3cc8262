#pragma once
// A live line chart for QML ("Chart"): one or two series drawn oldest to newest across the
// item's width, the first one filled. Painted in C++ so a 1 s refresh of a few charts stays
// cheap, and no chart module is needed. With `bars` each value is one bar, side by side
// across the width, and a second series pairs a bar with each of the first's.
//
// Main (GUI) thread only, as every Qt Quick item. `maximum` 0 scales to the largest value
// shown (at least `floor`), for rates; fractions pass 1.

#include <QColor>
#include <QList>
#include <QQuickPaintedItem>

namespace omnira::presentation {

class ChartItem : public QQuickPaintedItem {
  Q_OBJECT
  Q_PROPERTY(QList<qreal> values MEMBER values_ NOTIFY appearanceChanged)
  Q_PROPERTY(QList<qreal> secondValues MEMBER secondValues_ NOTIFY appearanceChanged)
  Q_PROPERTY(qreal maximum MEMBER maximum_ NOTIFY appearanceChanged)
  Q_PROPERTY(qreal floor MEMBER floor_ NOTIFY appearanceChanged)
  Q_PROPERTY(QColor color MEMBER color_ NOTIFY appearanceChanged)
  Q_PROPERTY(QColor secondColor MEMBER secondColor_ NOTIFY appearanceChanged)
  Q_PROPERTY(QColor gridColor MEMBER gridColor_ NOTIFY appearanceChanged)
  // At least this many points across, so a young history grows from the right.
  Q_PROPERTY(int span MEMBER span_ NOTIFY appearanceChanged)
  Q_PROPERTY(bool bars MEMBER bars_ NOTIFY appearanceChanged)

 public:
  explicit ChartItem(QQuickItem* parent = nullptr);
  void paint(QPainter* painter) override;

 signals:
  void appearanceChanged();

 private:
  QList<qreal> values_, secondValues_;
  qreal maximum_ = 1, floor_ = 1;
  QColor color_{0x3b, 0x82, 0xf6}, secondColor_{0xa8, 0x55, 0xf7}, gridColor_{128, 128, 128, 40};
  int span_ = 60;
  bool bars_ = false;
};

}  // namespace omnira::presentation
