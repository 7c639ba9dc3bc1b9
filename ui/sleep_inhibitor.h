// Keeps the computer from going to sleep while files are uploaded. The screen may still be switched
// off and locked.
//
// The login manager is asked first, on the system bus. In a sandbox, which hides that bus, the
// desktop portal is asked on the session bus. Where neither exists, nothing happens and nothing is
// reported.
#pragma once

#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QObject>

class QDBusMessage;

namespace quenmoor {

// Main thread only. No function waits for an answer from the bus.
class SleepInhibitor : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // Releases the inhibitor. One that is requested and not granted yet ends with the process.
    ~SleepInhibitor() override;

    // Requests or releases the inhibitor. Repeated calls with the same value have no effect. There
    // is never more than one inhibitor or request.
    void setInhibited(bool inhibited);

private:
    enum class State : quint8 { Idle, Requested, Held, Refused };

    void requestFromLogin();
    void requestFromPortal();
    void onLoginReply(const QDBusMessage& reply);
    void onPortalReply(const QDBusMessage& reply);
    void onGranted();
    void release();

    bool wanted_ = false;
    State state_ = State::Idle;
    QDBusUnixFileDescriptor lock_;  // of the login manager; closing it releases
    QDBusObjectPath portalRequest_; // of the portal
};

} // namespace quenmoor
