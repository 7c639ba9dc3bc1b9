#include "ui/application_service.h"

#include "base/log.h"

#include <unistd.h>

#include <QDBusMessage>
#include <optional>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

constexpr quint32 kDoNotQueue = 4; // flag of RequestName
constexpr quint32 kPrimaryOwner = 1;
constexpr quint32 kNameExists = 3;

const QString kPath = u"/com/quenmoor/Upload"_s;
const QString kInterface = u"org.freedesktop.Application"_s;
const QString kBusName = u"org.freedesktop.DBus"_s;

const QString kWaylandTokenKey = u"activation-token"_s;
const QString kStartupIdKey = u"desktop-startup-id"_s;
const QString kExpiryKey = u"com.quenmoor.expires"_s; // milliseconds of the monotonic clock

qint64 monotonicMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

QDBusMessage callWithin(const QDBusConnection& bus, QDBusMessage call, const QDeadlineTimer& limit)
{
    call.setAutoStartService(false);
    return bus.call(call, QDBus::Block, static_cast<int>(limit.remainingTime()));
}

QDBusMessage busCall(const QString& function, const QVariantList& arguments)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(kBusName, u"/org/freedesktop/DBus"_s, kBusName, function);
    call.setArguments(arguments);
    return call;
}

// The result of a bus call with one number, or nothing.
std::optional<quint32> numberFrom(const QDBusMessage& reply)
{
    if (reply.type() != QDBusMessage::ReplyMessage)
        return std::nullopt;
    return reply.arguments().value(0).toUInt();
}

QVariantMap platformDataOf(const ActivationToken& token, const QDeadlineTimer& limit)
{
    // The receiver refuses a later request. The rest of the time is for its confirmation.
    QVariantMap data{{kExpiryKey, monotonicMilliseconds() + limit.remainingTime() * 3 / 4}};
    if (!token.wayland.isEmpty())
        data[kWaylandTokenKey] = token.wayland;
    if (!token.startupId.isEmpty())
        data[kStartupIdKey] = token.startupId;
    return data;
}

ActivationToken tokenFrom(const QVariantMap& platformData)
{
    return {platformData.value(kWaylandTokenKey).toString(),
            platformData.value(kStartupIdKey).toString()};
}

QDBusMessage requestFor(const std::vector<FileUrl>& files, const ActivationToken& token,
                        const QDeadlineTimer& limit)
{
    QDBusMessage call = QDBusMessage::createMethodCall(kApplicationId.toString(), kPath, kInterface,
                                                       files.empty() ? u"Activate"_s : u"Open"_s);
    if (!files.empty()) {
        QStringList uris;
        for (const FileUrl& file : files)
            uris << uriOf(file);
        call << uris;
    }
    call << platformDataOf(token, limit);
    return call;
}

} // namespace

ApplicationService::Start ApplicationService::start(const std::vector<FileUrl>& files,
                                                    const ActivationToken& token)
{
    const QDeadlineTimer limit(startLimit_);
    // A bus of another user, for example under sudo, must not receive file names.
    if (!bus_.isConnected() ||
        numberFrom(callWithin(bus_, busCall(u"GetConnectionUnixUser"_s, {kBusName}), limit)) !=
            geteuid())
        return Start::Window;
    // Before the name is taken: a request may arrive as soon as it is.
    bus_.registerObject(kPath, this, QDBusConnection::ExportScriptableSlots);
    Name name = takeName(limit);
    if (name == Name::OwnedByOther) {
        if (callWithin(bus_, requestFor(files, token, limit), limit).type() ==
            QDBusMessage::ReplyMessage)
            return Start::HandedOver;
        logSystem("The running window does not respond; this process opens another window.");
        name = takeName(limit); // the owner may have ended meanwhile
    }
    if (name != Name::Taken)
        bus_.unregisterObject(kPath);
    return Start::Window;
}

ApplicationService::Name ApplicationService::takeName(const QDeadlineTimer& limit) const
{
    const QDBusMessage call =
        busCall(u"RequestName"_s, {kApplicationId.toString(), QVariant::fromValue(kDoNotQueue)});
    switch (numberFrom(callWithin(bus_, call, limit)).value_or(0)) {
    case kPrimaryOwner: return Name::Taken;
    case kNameExists: return Name::OwnedByOther;
    default: return Name::Unavailable;
    }
}

void ApplicationService::stop()
{
    bus_.unregisterObject(kPath);
    bus_.send(busCall(u"ReleaseName"_s, {kApplicationId.toString()}));
}

void ApplicationService::Activate(const QVariantMap& platformData)
{
    if (accept(platformData))
        Q_EMIT openRequested({}, tokenFrom(platformData));
}

void ApplicationService::Open(const QStringList& uris, const QVariantMap& platformData)
{
    if (!accept(platformData))
        return;
    std::vector<FileUrl> files;
    for (const QString& uri : uris) {
        if (auto file = FileUrl::parse(uri.toStdString()))
            files.push_back(*std::move(file));
    }
    if (files.size() < static_cast<std::size_t>(uris.size()))
        logSystem("{} of {} files to open are not on this computer.",
                  static_cast<std::size_t>(uris.size()) - files.size(), uris.size());
    Q_EMIT openRequested(files, tokenFrom(platformData));
}

void ApplicationService::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                        const QVariantMap& /*platformData*/)
{
    sendErrorReply(QDBusError::InvalidArgs, u"There is no action %1."_s.arg(name));
}

bool ApplicationService::accept(const QVariantMap& platformData)
{
    const QVariant expiry = platformData.value(kExpiryKey);
    if (!expiry.isValid() || monotonicMilliseconds() < expiry.toLongLong())
        return true;
    sendErrorReply(QDBusError::TimedOut, u"The request has expired."_s);
    return false;
}

} // namespace quenmoor
