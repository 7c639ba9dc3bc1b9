// The service's upload page in an embedded browser.
//
// Everything lives in memory: the browser keeps no cookie, cache or setting on disk. Which
// certificates are trusted is the machine's affair; one that is not is never accepted. The page
// gets no permission, download, dialog or window of its own: a link that would open another window
// opens in the user's own browser.
#pragma once

#include "ui/page/service_page.h"

#include <QPointer>
#include <QTimer>
#include <chrono>
#include <functional>
#include <memory>

class QStackedWidget;
class QWebEngineLoadingInfo;
class QWebEngineProfile;
class QWebEngineView;

namespace quenmoor {

class FailurePanel;

// Main thread only. When a load fails, is not answered in time, or the page's process dies, a
// panel with the reason and a Reload button stands in the page's place until the next load.
class WebServicePage : public ServicePage {
    Q_OBJECT

public:
    // Titles count only from documents of the origin of `baseUrl`. `openInBrowser` takes http and
    // https URLs. A load that makes no progress for `patience` has failed.
    WebServicePage(const QString& baseUrl, std::function<void(const QUrl&)> openInBrowser,
                   std::chrono::milliseconds patience = std::chrono::seconds(30));
    ~WebServicePage() override;

    QWidget* widget() override;
    void load(const QUrl& url) override;

private:
    void makeView();
    void connectPage();
    void refuseWishes();
    void watchTitles();
    void loadingChanged(const QWebEngineLoadingInfo& info);
    void showFailure(const QString& reason, const QString& detail);

    // Set once at construction. The profile outlives the view, which the window may delete.
    const QUrl baseUrl_;
    const std::function<void(const QUrl&)> openInBrowser_;
    std::unique_ptr<QWebEngineProfile> profile_;
    QPointer<QStackedWidget> widget_;
    QPointer<QWebEngineView> view_;
    FailurePanel* panel_ = nullptr; // a child of widget_

    QUrl url_; // the last one asked for; what Reload loads
    QTimer patience_;
};

} // namespace quenmoor
