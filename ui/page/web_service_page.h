// The service's upload page in an embedded browser, and the panel that replaces it when a load
// fails.
//
// A script in an isolated world of the main frame reports each title together with the values of
// the page's elements. Nothing is stored on disk. Whether a certificate is trusted is decided by
// the machine's configuration.
#pragma once

#include "ui/service_page.h"

#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <chrono>
#include <functional>
#include <memory>

class QLabel;
class QPushButton;
class QStackedWidget;
class QWebEngineLoadingInfo;
class QWebEngineProfile;
class QWebEngineView;

namespace quenmoor {

class RestrictedPage;

// Shows why the page is not available, with a button that loads it again. Main thread only.
class FailurePanel : public QWidget {
    Q_OBJECT

public:
    explicit FailurePanel(QWidget* parent);

    // `reason` is a sentence for the user, `detail` is for a support person and may be empty.
    void setFailure(const QString& reason, const QString& detail);

    void focusReload();

Q_SIGNALS:
    void reloadRequested();

private:
    QLabel* reason_;
    QLabel* detail_;
    QPushButton* reload_;
};

// Main thread only. The failure panel is shown when a load fails or times out, or when the page's
// process crashes, until the next load.
class WebServicePage : public ServicePage {
    Q_OBJECT

public:
    // Only documents of the origin of `baseUrl` can signal titles. `openInBrowser` is called with
    // the http and https URLs of links that lead elsewhere. A load fails if it makes no progress
    // for `loadTimeout`.
    WebServicePage(const QString& baseUrl, std::function<void(const QUrl&)> openInBrowser,
                   std::chrono::milliseconds loadTimeout = std::chrono::seconds(30));
    ~WebServicePage() override;

    QWidget* widget() override;
    void load(const QUrl& url) override;

private:
    void makeView();
    void connectPage();
    void watchTitles();
    void loadingChanged(const QWebEngineLoadingInfo& info);
    void showFailure(const QString& reason, const QString& detail);

    // Set once at construction. The profile outlives the view, which the window may delete.
    const QUrl baseUrl_;
    const std::function<void(const QUrl&)> openInBrowser_;
    std::unique_ptr<QWebEngineProfile> profile_;
    QPointer<QStackedWidget> widget_;
    QPointer<QWebEngineView> view_;
    QPointer<RestrictedPage> page_; // owned by view_
    FailurePanel* panel_ = nullptr; // owned by widget_

    QUrl url_; // the latest one that load() received; the Reload button loads it
    QTimer loadTimer_;
};

} // namespace quenmoor
