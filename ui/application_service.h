// Makes the program one window per session: the interface org.freedesktop.Application on the
// session bus, under the application id.
//
// The first process owns the name. A later one hands its files over to it and ends. File managers
// and launchers call the same functions.
#pragma once

#include "queue/file_url.h"
#include "ui/desktop_bus.h"

#include <QDBusContext>
#include <QDeadlineTimer>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <vector>

namespace quenmoor {

// Main thread only. Created after the application object.
class ApplicationService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    static constexpr std::chrono::milliseconds kStartLimit{2000};

    enum class Start : quint8 {
        Window,     // this process shows the window
        HandedOver, // another process has taken the files and shows its window
    };

    explicit ApplicationService(const QDBusConnection& bus = QDBusConnection::sessionBus(),
                                std::chrono::milliseconds startLimit = kStartLimit)
        : bus_(bus), startLimit_(startLimit)
    {
    }

    // Takes the name, or hands `files` over to the process that has it. Blocks for at most the
    // start limit. Returns Window whenever the other process has not confirmed, so that no file is
    // lost, and where there is no session bus of the same user.
    [[nodiscard]] Start start(const std::vector<FileUrl>& files, const ActivationToken& token);

    // Gives the name up. Call it when the program begins to end: requests that arrive later then
    // start another process.
    void stop();

    // The functions of the interface; the bus calls them.
    Q_SCRIPTABLE Q_SLOT void Activate(const QVariantMap& platformData);
    Q_SCRIPTABLE Q_SLOT void Open(const QStringList& uris, const QVariantMap& platformData);
    // The program has no actions: an error.
    Q_SCRIPTABLE Q_SLOT void ActivateAction(const QString& name, const QVariantList& parameter,
                                            const QVariantMap& platformData);

Q_SIGNALS:
    // Another process asks for the window; `files` may be empty.
    void openRequested(const std::vector<quenmoor::FileUrl>& files,
                       const quenmoor::ActivationToken& token);

private:
    enum class Name : quint8 { Taken, OwnedByOther, Unavailable };

    Name takeName(const QDeadlineTimer& limit) const;
    // Returns false if the request came too late: its sender has opened a second window.
    bool accept(const QVariantMap& platformData);

    QDBusConnection bus_;
    const std::chrono::milliseconds startLimit_;
};

} // namespace quenmoor
