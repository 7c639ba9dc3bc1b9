#include "ui/desktop_bus.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QFileInfo>
#include <QWidget>

namespace quenmoor {
namespace {

constexpr const char* kBusAddress = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* kWaylandToken = "XDG_ACTIVATION_TOKEN";

} // namespace

void useRunningBusOnly()
{
    if (!qEnvironmentVariableIsEmpty(kBusAddress))
        return;
    const QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtimeFolder.isEmpty() || !QFileInfo::exists(runtimeFolder + QStringLiteral("/bus")))
        qputenv(kBusAddress, "disabled:"); // no such transport exists
}

void callAsync(const QDBusConnection& bus, const QDBusMessage& call, QObject* context,
               std::function<void(const QDBusMessage&)> onReply)
{
    auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, onReply = std::move(onReply)] {
                         watcher->deleteLater();
                         onReply(watcher->reply());
                     });
}

QString uriOf(const FileUrl& file)
{
    return QString::fromStdString(file.text()).replace(u'?', QStringLiteral("%3F"));
}

ActivationToken ActivationToken::ofThisProcess()
{
    return {qEnvironmentVariable(kWaylandToken), qEnvironmentVariable("DESKTOP_STARTUP_ID")};
}

void bringToFront(QWidget& window, const ActivationToken& token)
{
    // Qt's Wayland plugin takes the token of an activation from the environment.
    if (!token.wayland.isEmpty())
        qputenv(kWaylandToken, token.wayland.toUtf8());
    window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
    window.show();
    window.raise();
    window.activateWindow();
}

} // namespace quenmoor
