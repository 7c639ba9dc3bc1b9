#include "ui/desktop_notices.h"

#include "ui/appearance.h"
#include "ui/desktop_bus.h"

#include <QDBusMessage>
#include <array>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

const QString kService = u"org.freedesktop.Notifications"_s;
const QString kPath = u"/org/freedesktop/Notifications"_s;
const QString kClick = u"default"_s; // the action of a click on the notification itself

constexpr uchar kNormal = 1;
constexpr uchar kCritical = 2;
constexpr int kServiceDecides = -1;
constexpr int kNoTimeout = 0;

const std::array kCategories{u"transfer.complete"_s, u"transfer"_s, u"transfer.error"_s};

QDBusMessage notificationCall(const QString& function, const QVariantList& arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, function);
    call.setArguments(arguments);
    return call;
}

QVariantList notifyArguments(const Notice& notice, quint32 replacedId,
                             const QStringList& capabilities)
{
    // A service with this capability reads the body as markup; file names are plain text.
    const bool markup = capabilities.contains(u"body-markup"_s);
    const QStringList actions =
        capabilities.contains(u"actions"_s) ? QStringList{kClick, u"Show"_s} : QStringList{};
    const bool failed = notice.kind == Notice::Kind::Failure;
    const QVariantMap hints{{u"desktop-entry"_s, kApplicationId.toString()},
                            {u"urgency"_s, QVariant::fromValue(failed ? kCritical : kNormal)},
                            {u"category"_s, kCategories.at(static_cast<std::size_t>(notice.kind))}};
    // What the user must answer remains until it is withdrawn.
    const int timeout = notice.kind == Notice::Kind::Done ? kServiceDecides : kNoTimeout;
    return {kProductName.toString(),
            replacedId,
            kApplicationId.toString(),
            notice.summary,
            markup ? notice.body.toHtmlEscaped() : notice.body,
            actions,
            hints,
            timeout};
}

} // namespace

void Notifier::show(const Notice& notice)
{
    next_ = notice;
    sendNext();
}

void Notifier::withdraw()
{
    next_.reset();
    withdrawn_ = true;
    close();
}

void Notifier::sendNext()
{
    if (waiting_ || !next_)
        return;
    waiting_ = true;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!capabilities_) {
        callAsync(bus, notificationCall(u"GetCapabilities"_s, {}), this,
                  [this](const QDBusMessage& reply) {
                      waiting_ = false;
                      if (reply.type() != QDBusMessage::ReplyMessage) {
                          next_.reset();
                          return;
                      }
                      capabilities_ = reply.arguments().value(0).toStringList();
                      connectSignals();
                      sendNext();
                  });
        return;
    }
    withdrawn_ = false;
    callAsync(bus, notificationCall(u"Notify"_s, notifyArguments(*next_, id_, *capabilities_)),
              this, [this](const QDBusMessage& reply) { onShown(reply); });
    next_.reset();
}

void Notifier::connectSignals()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(kService, kPath, kService, u"ActionInvoked"_s, this,
                SLOT(actionInvoked(uint, QString)));
    bus.connect(kService, kPath, kService, u"ActivationToken"_s, this,
                SLOT(activationToken(uint, QString)));
    bus.connect(kService, kPath, kService, u"NotificationClosed"_s, this,
                SLOT(notificationClosed(uint, uint)));
}

void Notifier::onShown(const QDBusMessage& reply)
{
    waiting_ = false;
    const bool shown = reply.type() == QDBusMessage::ReplyMessage;
    id_ = shown ? reply.arguments().value(0).toUInt() : 0;
    if (withdrawn_)
        close();
    sendNext();
}

void Notifier::close()
{
    if (id_ != 0)
        QDBusConnection::sessionBus().send(notificationCall(u"CloseNotification"_s, {id_}));
    id_ = 0;
}

void Notifier::actionInvoked(uint id, const QString& action)
{
    if (id == id_ && id != 0 && action == kClick)
        Q_EMIT clicked(std::exchange(token_, {}));
}

void Notifier::activationToken(uint id, const QString& token)
{
    if (id == id_ && id != 0)
        token_ = token;
}

void Notifier::notificationClosed(uint id, uint /*reason*/)
{
    if (id == id_)
        id_ = 0;
}

void LauncherEntry::setProgress(std::optional<int> percent)
{
    if (percent == percent_)
        return;
    percent_ = percent;
    update({{u"progress"_s, percent.value_or(0) / 100.0},
            {u"progress-visible"_s, percent.has_value()}});
}

void LauncherEntry::setUrgent(bool urgent)
{
    if (urgent == urgent_)
        return;
    urgent_ = urgent;
    update({{u"urgent"_s, urgent}});
}

void LauncherEntry::update(const QVariantMap& properties) const
{
    QDBusMessage signal =
        QDBusMessage::createSignal(u"/com/quenmoor/Upload/LauncherEntry"_s,
                                   u"com.canonical.Unity.LauncherEntry"_s, u"Update"_s);
    signal << u"application://%1.desktop"_s.arg(kApplicationId) << properties;
    QDBusConnection::sessionBus().send(signal);
}

} // namespace quenmoor
