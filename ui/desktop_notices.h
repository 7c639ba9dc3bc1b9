// What the desktop displays about the uploads outside of the window: one notification, and progress
// and urgency on the program's icon in the taskbar.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

class QDBusMessage;

namespace quenmoor {

// The content of a notification, as plain text.
struct Notice {
    enum class Kind : quint8 { Done, Question, Failure };

    Kind kind{};
    QString summary;
    QString body;
};

// The program's notification on the desktop. There is at most one: a new one replaces it. Without a
// notification service nothing happens. Main thread only; no function blocks.
class Notifier : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    void show(const Notice& notice);
    void withdraw();

Q_SIGNALS:
    // The user clicked the notification. The token may be empty.
    void clicked(const QString& activationToken);

private:
    Q_SLOT void actionInvoked(uint id, const QString& action);
    Q_SLOT void activationToken(uint id, const QString& token);
    Q_SLOT void notificationClosed(uint id, uint reason);

    void connectSignals();
    void sendNext();
    void onShown(const QDBusMessage& reply);
    void close();

    std::optional<QStringList> capabilities_; // of the service, once it has answered
    std::optional<Notice> next_;              // to be sent when the service has answered
    bool waiting_ = false;                    // for an answer of the service
    bool withdrawn_ = false;                  // the notification that is being sent
    quint32 id_ = 0;                          // of the shown notification; 0 for none
    QString token_;
};

// The icon in the taskbar, for desktops that support the launcher entry of Unity: KDE, and the
// docks of GNOME and others. Main thread only; no function blocks.
class LauncherEntry {
public:
    // `percent` of the uploads is done; nullopt while nothing is uploaded.
    void setProgress(std::optional<int> percent);

    // Whether the icon requests the user's attention.
    void setUrgent(bool urgent);

private:
    void update(const QVariantMap& properties) const;

    std::optional<int> percent_;
    bool urgent_ = false;
};

} // namespace quenmoor
