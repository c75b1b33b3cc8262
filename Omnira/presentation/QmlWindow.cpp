#include "Omnira/presentation/QmlWindow.h"

#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QTimer>

#include <malloc.h>

#include <spdlog/spdlog.h>

namespace omnira::presentation {

QmlWindow::QmlWindow(QUrl source, std::map<QString, QObject*> context, QObject* parent)
    : QObject(parent), source_(std::move(source)), context_(std::move(context)) {}

QmlWindow::~QmlWindow() {
  // Its window hides as the engine goes; that is no closing to tell anyone about.
  if (window_) window_->disconnect(this);
  delete engine_;
  delete closing_.data();
}

bool QmlWindow::open() {
  if (window_) {
    window_->show();
    window_->raise();
    window_->requestActivate();
    return true;
  }
  // A window closed a moment ago may still have its engine waiting for deletion; one whose
  // window went some other way still has its engine.
  delete closing_.data();
  delete engine_;
  engine_ = new QQmlApplicationEngine;
  for (const auto& [name, object] : context_) engine_->rootContext()->setContextProperty(name, object);
  engine_->load(source_);
  const auto roots = engine_->rootObjects();
  window_ = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
  if (!window_) {
    spdlog::error("The window {} could not be loaded.", source_.toString().toStdString());
    delete engine_;
    engine_ = nullptr;
    return false;
  }
  connect(window_, &QQuickWindow::visibleChanged, this, [this](bool visible) {
    if (!visible) close();
  });
  window_->show();
  window_->raise();
  window_->requestActivate();
  emit opened();
  return true;
}

void QmlWindow::close() {
  if (!engine_) return;
  QQuickWindow* window = window_;
  window_ = nullptr;
  if (window) {
    window->disconnect(this);
    window->hide();
  }
  // Later, not now: this may run inside one of the window's own signals. Once gone, the
  // heap it used goes back to the system too, or a closed window would still cost it.
  connect(engine_, &QObject::destroyed, [] { QTimer::singleShot(0, [] { ::malloc_trim(0); }); });
  closing_ = engine_;
  engine_->deleteLater();
  engine_ = nullptr;
  emit closed();
}

}  // namespace omnira::presentation
