#pragma once
// One QML window that exists only while it is open: open() makes a QML engine and loads
// the window, closing it (from the window's own close button too) deletes both, so a
// closed window costs no memory and no work. Opening an open window raises it.
//
// Main thread only. `context` objects are set on the engine's root context at each
// opening; the owner keeps them alive. A window whose QML does not load is logged, stays
// closed and open() returns false.

#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QString>
#include <QUrl>

#include <map>

class QQmlApplicationEngine;

namespace omnira::presentation {

class QmlWindow : public QObject {
  Q_OBJECT

 public:
  QmlWindow(QUrl source, std::map<QString, QObject*> context, QObject* parent = nullptr);
  ~QmlWindow() override;

  bool open();
  void close();
  bool isOpen() const { return !window_.isNull(); }
  // The open window; null while closed.
  QQuickWindow* window() const { return window_; }

 signals:
  void opened();
  void closed();

 private:
  QUrl source_;
  std::map<QString, QObject*> context_;
  QQmlApplicationEngine* engine_ = nullptr;
  // A closed window's engine until its deferred deletion runs; deleted with this object if
  // that has not happened yet, while what its QML binds to still exists.
  QPointer<QQmlApplicationEngine> closing_;
  QPointer<QQuickWindow> window_;
};

}  // namespace omnira::presentation
