#include "ui/page/title_watcher.h"

#include <QFile>
#include <QWebChannel>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>

namespace quenmoor {

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
    page->scripts().insert(script);

    auto* const channel = new QWebChannel(page);
    channel->registerObject(QStringLiteral("watcher"), this);
    page->setWebChannel(channel, kWatcherWorld);
}

void TitleWatcher::receiveDocument(const QString& origin)
{
    Q_EMIT documentCreated(origin.left(kMaxPageText));
}

void TitleWatcher::receiveLink(const QString& url)
{
    Q_EMIT linkClicked(QUrl::fromEncoded(url.toUtf8()));
}

void TitleWatcher::receiveTitle(const QJsonObject& message)
{
    Q_EMIT titleReceived(readPageSignal(message, log_));
}

} // namespace quenmoor
