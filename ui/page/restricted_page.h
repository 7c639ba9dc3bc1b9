// A web page that cannot leave the service's origin, open windows or dialogs, receive permissions
// or download files, in a profile that stores nothing on disk.
#pragma once

#include "ui/service_page.h"

#include <QWebEnginePage>
#include <functional>
#include <memory>

class QWebEngineProfile;

namespace quenmoor {

// Returns true for the schemes http and https.
bool isWebUrl(const QUrl& url);

// Creates an off-the-record profile. The first call selects the colour scheme of the browser engine
// for the process, so no other web view may exist before it. Main thread only.
std::unique_ptr<QWebEngineProfile> makeProfile();

// Main thread only. Certificates that the machine does not trust are never accepted.
class RestrictedPage : public QWebEnginePage {
    Q_OBJECT

public:
    // `service` is any URL of the allowed origin. `openInBrowser` is called with the http and https
    // URLs of links that the user clicked and that lead to another origin or window. It and `log`,
    // which receives the page's console and alerts, must outlive the page.
    RestrictedPage(QWebEngineProfile* profile, QUrl service,
                   const std::function<void(const QUrl&)>& openInBrowser, PageLog& log,
                   QObject* parent);

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
    QStringList chooseFiles(FileSelectionMode mode, const QStringList& oldFiles,
                            const QStringList& acceptedMimeTypes) override;
    void javaScriptAlert(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptConfirm(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptPrompt(const QUrl& securityOrigin, const QString& msg,
                          const QString& defaultValue, QString* result) override;
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& message,
                                  int line, const QString& source) override;

private:
    void applySettings();
    void rejectRequests();

    const QUrl service_;
    const std::function<void(const QUrl&)>& openInBrowser_;
    PageLog& log_;
};

} // namespace quenmoor
