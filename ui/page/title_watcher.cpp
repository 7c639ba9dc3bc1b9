#include "ui/page/title_watcher.h"

#include <QFile>
#include <QWebChannel>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>

namespace quenmoor {
namespace {

constexpr qsizetype kMaxValueLength = 65'536; // characters; far above any session, token or URL

} // namespace

QString originOf(const QUrl& url)
{
    const auto parts =
        QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment;
    return QString::fromLatin1(url.adjusted(parts).toEncoded());
}

TitleWatcher::TitleWatcher(QWebEnginePage* page, const QUrl& service, PageLog& log)
    : QObject(page), log_(log)
{
    static_assert(kWatcherWorld == QWebEngineScript::ApplicationWorld);
    QFile file(QStringLiteral(":/ui/title_watcher.js"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The resource title_watcher.js is missing in this build.");
    QString source = QString::fromUtf8(file.readAll());
    source.replace(QStringLiteral("__SERVICE_ORIGIN__"), originOf(service));

    QWebEngineScript script;
    script.setName(QStringLiteral("title watcher"));
    script.setSourceCode(source);
    script.setWorldId(kWatcherWorld);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setRunsOnSubFrames(false);
    page->scripts().insert(script);

    auto* const channel = new QWebChannel(page);
    channel->registerObject(QStringLiteral("watcher"), this);
    page->setWebChannel(channel, kWatcherWorld);
}

void TitleWatcher::receiveDocument(const QString& origin)
{
    Q_EMIT documentCreated(origin.left(kMaxValueLength));
}

void TitleWatcher::receiveTitle(const QJsonObject& message)
{
    PageSignal signal;
    signal.title = message.value(QStringLiteral("title")).toString().left(kMaxValueLength);
    signal.session = valueOf(message, QStringLiteral("session"));
    signal.token = valueOf(message, QStringLiteral("token"));
    signal.macMajor = valueOf(message, QStringLiteral("mac_major"));
    signal.macMinor = valueOf(message, QStringLiteral("mac_minor"));
    signal.macBuild = valueOf(message, QStringLiteral("mac_build"));
    signal.updateUrl = valueOf(message, QStringLiteral("update_url"));
    Q_EMIT titleReceived(signal);
}

std::optional<QString> TitleWatcher::valueOf(const QJsonObject& message, const QString& key) const
{
    const QJsonValue value = message.value(key);
    if (!value.isString())
        return std::nullopt;
    QString text = value.toString();
    if (text.size() > kMaxValueLength) {
        log_.write("The value of the page's element " + key.toStdString() +
                   " is too long and is ignored.");
        return std::nullopt;
    }
    return text;
}

} // namespace quenmoor
