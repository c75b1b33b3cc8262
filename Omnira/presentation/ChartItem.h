#pragma once
// A live line chart for QML ("Chart"): one or two series drawn oldest to newest across the
// item's width, the first one filled. Painted in C++ so a 1 s refresh of a few charts stays
// cheap, and no chart module is needed. With `bars` each value is one bar, side by side
// across the width, and a second series pairs a bar with each of the first's.
//
// Every chart can be exported: a right click, the menu key or Shift+F10 (it takes focus
// with Tab) offers "Save as PNG…" and "Copy"; Ctrl+S and Ctrl+C do the same. The picture is
// the chart's own painting into an image, so it needs no window and no graphics card. Saves
// go to the Downloads folder under a new name, never over a file or through a link.
//
// Main (GUI) thread only, as every Qt Quick item. `maximum` 0 scales to the largest value
// shown (at least `floor`), for rates; fractions pass 1.

#include <QColor>
#include <QImage>
#include <QList>
#include <QQuickPaintedItem>
#include <QTimer>

#include <filesystem>
#include <string>

#include "OmniraCore/foundation/Result.h"

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
  // The exported file's name, without ".png"; empty takes the chart's Accessible.name.
  Q_PROPERTY(QString exportName MEMBER exportName_ NOTIFY appearanceChanged)
  // What the last export did ("Saved as …", "Copied", or why it failed); empty again after a while.
  Q_PROPERTY(QString exportNote READ exportNote NOTIFY exportNoteChanged)
  Q_PROPERTY(bool bars MEMBER bars_ NOTIFY appearanceChanged)

 public:
  struct Failure {
    std::string message;  // one sentence naming the file or folder
  };

  explicit ChartItem(QQuickItem* parent = nullptr);
  void paint(QPainter* painter) override;

  // The chart as painted now, on the palette's base colour, at the window's pixel ratio
  // (1 without a window).
  QImage image() const;
  // Writes image() as "<exportName>.png" in `folder` (made if missing); a name that is
  // taken, by a file or a link, gets " (2)", " (3)"… Returns the file written.
  Result<std::filesystem::path, Failure> savePNG(const std::filesystem::path& folder) const;

  QString exportNote() const { return exportNote_; }

 public slots:
  // To the Downloads folder; the note says where, or why not.
  void saveToDownloads();
  void copyImage();
  void showMenu();

 signals:
  void appearanceChanged();
  void exportNoteChanged();

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  void draw(QPainter* painter, qreal w, qreal h) const;
  void showMenuAt(QPointF at);
  void note(const QString& text);

  QList<qreal> values_, secondValues_;
  qreal maximum_ = 1, floor_ = 1;
  QColor color_{0x3b, 0x82, 0xf6}, secondColor_{0xa8, 0x55, 0xf7}, gridColor_{128, 128, 128, 40};
  int span_ = 60;
  QString exportName_;
  QString exportNote_;
  QTimer noteShown_;
  bool bars_ = false;
};

}  // namespace omnira::presentation
