#include "ui/sleep_inhibitor.h"

#include "ui/appearance.h"
#include "ui/desktop_bus.h"

#include <QDBusMessage>
#include <QVariantMap>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

constexpr quint32 kPortalSuspend = 4; // flag of org.freedesktop.portal.Inhibit

const QString kReason = u"Files are being uploaded"_s;
const QString kPortal = u"org.freedesktop.portal.Desktop"_s;

} // namespace

SleepInhibitor::~SleepInhibitor()
{
    if (state_ == State::Held)
        release();
}

void SleepInhibitor::setInhibited(bool inhibited)
{
    if (inhibited == wanted_)
        return;
    wanted_ = inhibited;
    // The reply to a request that is under way is handled according to wanted_.
    if (wanted_ && state_ == State::Idle)
        requestFromLogin();
    else if (!wanted_ && state_ == State::Held)
        release();
    else if (!wanted_ && state_ == State::Refused)
        state_ = State::Idle;
}

void SleepInhibitor::requestFromLogin()
{
    state_ = State::Requested;
    QDBusMessage call =
        QDBusMessage::createMethodCall(u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                                       u"org.freedesktop.login1.Manager"_s, u"Inhibit"_s);
    call << u"sleep"_s << kProductName.toString() << kReason << u"block"_s;
    callAsync(QDBusConnection::systemBus(), call, this,
              [this](const QDBusMessage& reply) { onLoginReply(reply); });
}

void SleepInhibitor::onLoginReply(const QDBusMessage& reply)
{
    const auto lock = reply.arguments().value(0).value<QDBusUnixFileDescriptor>();
    if (reply.type() == QDBusMessage::ReplyMessage && lock.isValid()) {
        lock_ = lock;
        onGranted();
    } else if (wanted_) {
        requestFromPortal();
    } else {
        state_ = State::Idle;
    }
}

void SleepInhibitor::requestFromPortal()
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(kPortal, u"/org/freedesktop/portal/desktop"_s,
                                       u"org.freedesktop.portal.Inhibit"_s, u"Inhibit"_s);
    const QString noParentWindow;
    call << noParentWindow << kPortalSuspend << QVariantMap{{u"reason"_s, kReason}};
    callAsync(QDBusConnection::sessionBus(), call, this,
              [this](const QDBusMessage& reply) { onPortalReply(reply); });
}

void SleepInhibitor::onPortalReply(const QDBusMessage& reply)
{
    const auto request = reply.arguments().value(0).value<QDBusObjectPath>();
    if (reply.type() == QDBusMessage::ReplyMessage && !request.path().isEmpty()) {
        portalRequest_ = request;
        onGranted();
    } else {
        state_ = wanted_ ? State::Refused : State::Idle;
    }
}

void SleepInhibitor::onGranted()
{
    state_ = State::Held;
    if (!wanted_)
        release();
}

void SleepInhibitor::release()
{
    state_ = State::Idle;
    lock_ = QDBusUnixFileDescriptor();
    if (portalRequest_.path().isEmpty())
        return;
    QDBusConnection::sessionBus().send(QDBusMessage::createMethodCall(
        kPortal, portalRequest_.path(), u"org.freedesktop.portal.Request"_s, u"Close"_s));
    portalRequest_ = QDBusObjectPath();
}

} // namespace quenmoor
