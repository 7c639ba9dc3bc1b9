// A web page that cannot open windows or dialogs, receive permissions, download files or use more
// than a share of the memory, in a profile that stores nothing on disk and runs no service worker.
#pragma once

#include "ui/service_page.h"

#include <QWebEnginePage>
#include <functional>
#include <memory>

class QWebEngineProfile;

namespace quenmoor {

// What a page can do without end. The page is ended when it does so.
enum class PageActivity : std::uint8_t { Title, Document, Message, Request };
// The second argument is the number of events.
using CountActivity = std::function<void(PageActivity, double)>;

// Returns true for the schemes http and https.
bool isWebUrl(const QUrl& url);

// Returns whether a document of the page may request `url`, other than by a navigation of the main
// frame: programs on this computer are out of its reach, except the service at the origin of
// `service`.
bool mayRequest(const QUrl& url, const QUrl& service);

// Creates an off-the-record profile, which calls `count` for every request of its pages. The first
// call selects the colour scheme of the browser engine for the process, so no other web view may
// exist before it. Main thread only.
std::unique_ptr<QWebEngineProfile> makeProfile(const QUrl& service, CountActivity count);

// Main thread only. Certificates that the machine does not trust are never accepted.
class RestrictedPage : public QWebEnginePage {
    Q_OBJECT

public:
    struct Dependencies {
        // The http and https URLs of links that the user clicked and that lead to another origin or
        // window.
        std::function<void(const QUrl&)> openInBrowser;
        CountActivity count;
    };

    // `dependencies` and `log`, which receives the page's console and alerts, must outlive the
    // page.
    RestrictedPage(QWebEngineProfile* profile, const Dependencies& dependencies, PageLog& log,
                   QObject* parent);

    // The user has clicked a link to `url`, which is of another origin than the document. The
    // navigation follows.
    void setClickedLink(const QUrl& url) { clickedLink_ = url; }

    // Limits the memory of the page's process, which is ended when it needs more. Call it for every
    // new document, because a navigation to another site starts another process.
    void limitMemory() const;

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
    void countMessage(const QString& text);
    void countDialog();
    void applySettings();
    void rejectRequests();

    const Dependencies& deps_;
    PageLog& log_;
    QUrl clickedLink_;
};

} // namespace quenmoor
