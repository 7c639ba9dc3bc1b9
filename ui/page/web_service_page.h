// The service's upload page in an embedded browser, and the panels that replace it while it loads
// and when it has failed.
//
// Every load has its own browser page, and beginning a load deletes the previous one with its
// process. No document of an earlier load can therefore signal a title, receive input, return by
// the history or use the processor. The document may replace itself: every document of the
// service's origin within a load signals for this load.
//
// A document that does something without end is ended: it sets titles, loads itself, writes
// messages, opens dialogs, sends requests, blocks its thread or allocates memory. The window
// continues to react meanwhile.
//
// Nothing is stored on disk. Whether a certificate is trusted is decided by the machine's
// configuration.
#pragma once

#include "ui/page/restricted_page.h"

#include <QPointer>
#include <QTimer>
#include <functional>
#include <memory>
#include <vector>

class QStackedWidget;
class QWebEngineLoadingInfo;
class QWebEngineProfile;
class QWebEngineView;

namespace quenmoor {

class FailurePanel;
class LoadingPanel;
class PageInputFilter;

// Sets what the browser engine and the OpenGL drivers read from the environment, so that they store
// nothing on disk. Call it once, before the application object is created.
void prepareBrowserEngine();

// Main thread only.
class WebServicePage : public ServicePage {
    Q_OBJECT

public:
    // Only documents of the origin of `baseUrl` can signal titles. `openInBrowser` is called with
    // the http and https URLs of links that lead elsewhere.
    WebServicePage(const QString& baseUrl, std::function<void(const QUrl&)> openInBrowser);
    ~WebServicePage() override;

    QWidget* widget() override;
    LoadNumber load(const QUrl& url) override;
    void endOverload(const QString& what) override;
    bool hasFailed() const override { return state_ == State::Failed; }

private:
    enum class State {
        Empty,   // nothing was loaded yet
        Waiting, // for the document; the loading panel is shown
        Arrived, // the document exists and is shown, its resources may be missing
        Loaded,
        Failed, // the failure panel is shown; there is no document
    };

    void makeView();
    void replacePage();
    void connectPage();

    // Any function of the browser engine may call it.
    void count(PageActivity activity, double events);
    void countTitle(const PageSignal& signal);
    void endTitles();

    void beginLoad();
    void documentCreated(const QString& origin);
    void loadingChanged(const QWebEngineLoadingInfo& info);
    void checkResponse();
    void fail(const QString& reason, const QString& detail);
    void show(State state);

    // Set once at construction. The profile outlives the view, which the window may delete.
    const QUrl baseUrl_;
    const RestrictedPage::Dependencies pageDependencies_;
    PageLog log_;
    std::unique_ptr<QWebEngineProfile> profile_;
    QPointer<QStackedWidget> widget_;
    QPointer<QWebEngineView> view_;
    LoadingPanel* loadingPanel_ = nullptr; // owned by widget_, like the next two
    FailurePanel* failurePanel_ = nullptr;
    PageInputFilter* inputFilter_ = nullptr;

    // The latest load.
    QPointer<RestrictedPage> page_; // owned by widget_
    std::uint64_t pageNumber_ = 0;  // differs from load_ after a reload
    LoadNumber load_ = 0;
    QUrl url_;
    State state_ = State::Empty;
    QString foreignOrigin_; // of the document, unless it is the service's
    QTimer loadTimer_{this};
    QTimer responseTimer_{this};
    int unansweredChecks_ = 0;
    std::vector<EventLimit> activity_; // one for each PageActivity
    bool isOverloaded_ = false;
    QTimer overloadTimer_; // ends the page with excess_
    QString excess_;
};

} // namespace quenmoor
