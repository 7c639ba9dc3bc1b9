// Receives the titles of a page, the values of its elements and the user's clicks on links from
// title_watcher.js.
//
// The script runs in an isolated world of the main frame. The page's own scripts can reach neither
// the script nor the channel.
#pragma once

#include "ui/service_page.h"

#include <QJsonObject>

class QWebEnginePage;

namespace quenmoor {

// The isolated world of the script.
inline constexpr std::uint32_t kWatcherWorld = 1; // QWebEngineScript::ApplicationWorld

// The origin of `url` as window.origin returns it.
QString originOf(const QUrl& url);

// Main thread only. The signals are emitted inside a call from the browser engine, so a slot that
// opens a dialog or replaces the page must be connected with a queued connection.
class TitleWatcher : public QObject {
    Q_OBJECT

public:
    // Installs the script in `page`, which becomes the parent. Only titles of documents with the
    // origin of `service` are received. Values that are too long are logged to `log` and absent.
    TitleWatcher(QWebEnginePage* page, const QUrl& service, PageLog& log);

    // Called by the script.
    Q_INVOKABLE void receiveDocument(const QString& origin);
    Q_INVOKABLE void receiveLink(const QString& url);
    Q_INVOKABLE void receiveTitle(const QJsonObject& message);
    Q_INVOKABLE void receiveOverload() { Q_EMIT overloaded(); }

Q_SIGNALS:
    // A document of any origin exists in the main frame. No script of the page has run.
    void documentCreated(const QString& origin);

    // The user has clicked a link from the document to another origin. The request for the
    // navigation follows.
    void linkClicked(const QUrl& url);

    // `signal` has no load number.
    void titleReceived(const quenmoor::PageSignal& signal);

    // The document has set more titles in one task than are examined.
    void overloaded();

private:
    PageLog& log_;
};

} // namespace quenmoor
