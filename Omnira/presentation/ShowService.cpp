#include "Omnira/presentation/ShowService.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>

#include <fmt/format.h>

#include "Omnira/presentation/Desktop.h"

namespace omnira::presentation {

namespace {

// The running Omnira answers at once; a bus that hangs must not hold a start for long.
constexpr int answerMilliseconds = 10'000;

}  // namespace

ShowService::ShowService(Desktop* desktop, QDBusConnection bus, QObject* parent)
    : QObject(parent), desktop_(desktop), bus_(std::move(bus)) {}

ShowService::~ShowService() {
  if (!listening_) return;
  bus_.unregisterObject(objectPath);
  bus_.unregisterService(serviceName);
}

Result<void, ShowService::Failure> ShowService::listen() {
  if (!bus_.isConnected())
    return fail(Failure{fmt::format("No session bus: {}", bus_.lastError().message().toStdString())});
  if (!bus_.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots))
    return fail(Failure{fmt::format("The object {} is taken on the session bus.", objectPath)});
  if (!bus_.registerService(serviceName)) {
    bus_.unregisterObject(objectPath);
    return fail(Failure{fmt::format("The name {} is taken on the session bus.", serviceName)});
  }
  listening_ = true;
  return {};
}

Result<void, ShowService::Failure> ShowService::askToShow(QDBusConnection bus) {
  if (!bus.isConnected())
    return fail(Failure{fmt::format("No session bus: {}", bus.lastError().message().toStdString())});
  const QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("Show"));
  const QDBusMessage reply = bus.call(call, QDBus::Block, answerMilliseconds);
  if (reply.type() == QDBusMessage::ReplyMessage) return {};
  return fail(Failure{reply.errorMessage().toStdString()});
}

void ShowService::Show() {
  // The page it was on; a closed window opens anew there.
  desktop_->open(desktop_->page());
}

}  // namespace omnira::presentation
