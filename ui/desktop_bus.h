// What the files that use D-Bus share: the names of the program on the session bus, and a call that
// does not block.
//
// The program only uses a bus that runs. It starts none, because a bus that the library starts
// outlives the program and is recorded in the home folder.
#pragma once

#include "queue/file_url.h"

#include <QDBusConnection>
#include <QString>
#include <chrono>
#include <functional>

class QDBusMessage;
class QObject;
class QWidget;

namespace quenmoor {

// The application id: the name on the session bus, of the desktop file and of the icon.
inline constexpr QStringView kApplicationId = u"com.quenmoor.Upload";

// Keeps the D-Bus library from starting a session bus where none runs, and from connecting to a
// session or system bus that does not respond within `limit`: it would wait for 25 seconds, more
// than once. Blocks for `limit` at most for each bus. Call it before the application object is
// created.
void useRunningBusOnly(std::chrono::milliseconds limit = std::chrono::milliseconds(1500));

// Sends `call`. `onReply` gets the reply, which may be an error, on the thread of `context`; never
// if `context` is destroyed first. The main thread only.
void callAsync(const QDBusConnection& bus, const QDBusMessage& call, QObject* context,
               std::function<void(const QDBusMessage&)> onReply);

// The URI of `file` for other programs. FileUrl leaves "?" as it is; there it would begin a query.
QString uriOf(const FileUrl& file);

// Permits a program to bring a window to the front. The desktop gives it to the program that the
// user clicked, which passes it on. May be empty; the desktop then decides.
struct ActivationToken {
    QString wayland;   // XDG_ACTIVATION_TOKEN
    QString startupId; // DESKTOP_STARTUP_ID

    // Reads the environment, which Qt changes when the application object is created.
    static ActivationToken ofThisProcess();
};

// Shows, restores and raises `window` and gives it the keyboard focus, as far as the desktop
// permits with `token`. Main thread only.
void bringToFront(QWidget& window, const ActivationToken& token);

} // namespace quenmoor
