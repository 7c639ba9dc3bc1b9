#include "ui/desktop_bus.h"

#include "base/log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QFileInfo>
#include <QWidget>
#include <algorithm>
#include <cstddef>

namespace quenmoor {
namespace {

constexpr const char* kSessionBus = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* kSystemBus = "DBUS_SYSTEM_BUS_ADDRESS";
constexpr const char* kDisabled = "disabled:"; // no such transport exists
constexpr const char* kWaylandToken = "XDG_ACTIVATION_TOKEN";

// The value of `key` in the first address of a list such as "unix:path=/run/bus,guid=1;tcp:...".
QByteArray unixAddressPart(const QByteArray& addresses, QByteArrayView key)
{
    const QByteArray first = addresses.split(';').value(0);
    if (first.startsWith("unix:"))
        for (const QByteArray& part : first.mid(5).split(','))
            if (part.startsWith(key))
                return QByteArray::fromPercentEncoding(part.mid(key.size()));
    return {};
}

// Begins D-Bus authentication (AUTH EXTERNAL). Returns true if the bus sends anything or closes the
// connection within `limit`, if there is no bus, or if it is no Unix domain socket.
bool responds(const QByteArray& addresses, std::chrono::milliseconds limit)
{
    QByteArray name = unixAddressPart(addresses, "path=");
    if (const QByteArray abstract = unixAddressPart(addresses, "abstract="); !abstract.isEmpty())
        name = '\0' + abstract;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || std::size_t(name.size()) >= sizeof address.sun_path)
        return true;
    std::copy(name.begin(), name.end(), std::begin(address.sun_path));
    const auto length = offsetof(sockaddr_un, sun_path) + std::size_t(name.size());
    const int bus = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bus < 0)
        return true;
    fcntl(bus, F_SETFD, FD_CLOEXEC);
    fcntl(bus, F_SETFL, O_NONBLOCK);
    bool result = true;
    if (connect(bus, reinterpret_cast<const sockaddr*>(&address), socklen_t(length)) == 0) {
        const QByteArray uid = QByteArray::number(geteuid()).toHex();
        const QByteArray start = QByteArray(1, '\0') + "AUTH EXTERNAL " + uid + "\r\n";
        pollfd answer{.fd = bus, .events = POLLIN, .revents = 0};
        result = write(bus, start.data(), std::size_t(start.size())) == start.size() &&
                 poll(&answer, 1, int(limit.count())) > 0;
    } else {
        result = errno != EAGAIN; // too many clients wait for a bus that accepts none
    }
    close(bus);
    return result;
}

} // namespace

void useRunningBusOnly(std::chrono::milliseconds limit)
{
    if (qEnvironmentVariableIsEmpty(kSessionBus)) {
        const QString socket = qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/bus");
        qputenv(kSessionBus, socket.startsWith(u'/') && QFileInfo::exists(socket)
                                 ? "unix:path=" + QFile::encodeName(socket).toPercentEncoding("/")
                                 : QByteArray(kDisabled));
    }
    for (const auto& [variable, fallback] :
         {std::pair(kSessionBus, ""), {kSystemBus, "unix:path=/run/dbus/system_bus_socket"}}) {
        const QByteArray address = qgetenv(variable);
        if (responds(address.isEmpty() ? fallback : address, limit))
            continue;
        logSystem("The bus {} does not respond and is not used.",
                  (address.isEmpty() ? fallback : address).toStdString());
        qputenv(variable, kDisabled);
    }
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
