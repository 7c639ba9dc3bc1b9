// A web page that cannot leave the service's origin, open windows or dialogs, receive permissions
// or download files, in a profile that stores nothing on disk.
#pragma once

#include <QUrl>
#include <QWebEnginePage>
#include <functional>
#include <memory>

class QWebEngineProfile;

namespace quenmoor {

// Returns true for the schemes http and https.
bool isWebUrl(const QUrl& url);

// Creates an off-the-record profile. The first call configures the browser engine for the process,
// so no other web view may exist before it. Main thread only.
std::unique_ptr<QWebEngineProfile> makeProfile();

// Main thread only. Certificates that the machine does not trust are never accepted.
class RestrictedPage : public QWebEnginePage {
    Q_OBJECT

public:
    // `service` is any URL of the allowed origin. `openInBrowser` is called with the http and https
    // URLs of links that the user clicked and that lead to another origin or window; it must
    // outlive the page.
    RestrictedPage(QWebEngineProfile* profile, QUrl service,
                   const std::function<void(const QUrl&)>& openInBrowser, QObject* parent);

    // While `leaving` is true, the current document cannot prevent the next navigation.
    void setLeaving(bool leaving) { leaving_ = leaving; }

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
    QStringList chooseFiles(FileSelectionMode mode, const QStringList& oldFiles,
                            const QStringList& acceptedMimeTypes) override;
    void javaScriptAlert(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptConfirm(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptPrompt(const QUrl& securityOrigin, const QString& msg,
                          const QString& defaultValue, QString* result) override;

private:
    void applySettings();
    void rejectRequests();

    const QUrl service_;
    const std::function<void(const QUrl&)>& openInBrowser_;
    bool leaving_ = false;
};

} // namespace quenmoor
