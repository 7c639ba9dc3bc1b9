#include "ui/page/web_service_page.h"

#include "base/log.h"
#include "ui/page/page_input_filter.h"
#include "ui/page/page_panels.h"
#include "ui/page/title_watcher.h"

#include <QAction>
#include <QApplication>
#include <QStackedWidget>
#include <QWebEngineLoadingInfo>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <array>
#include <chrono>

namespace quenmoor {
namespace {

constexpr int kErrAborted = -3; // Chromium's ERR_ABORTED, also reported for a download

// Without any progress, until the document exists.
constexpr std::chrono::seconds kLoadLimit{30};

// Until the document's scripts let a script of the client run. Long, because the page may wait for
// a slow request and the machine may be busy.
constexpr std::chrono::seconds kResponseLimit{30};
constexpr int kResponseChecks = 6;

// Far above what a page needs: how often it may do something at once, and in a second on average.
struct ActivityLimit {
    const char* excess; // for a support person
    double burst;
    double perSecond;
};
constexpr std::array<ActivityLimit, 4> kActivityLimits{{
    {"Too many titles.", 1000, 10},
    {"Too many page loads.", 30, 0.5},
    {"Too many messages and dialogs.", 5000, 100},
    {"Too many requests.", 5000, 100},
}};

std::vector<EventLimit> activityLimits()
{
    std::vector<EventLimit> limits;
    limits.reserve(kActivityLimits.size());
    for (const ActivityLimit& limit : kActivityLimits)
        limits.emplace_back(limit.burst, limit.perSecond);
    return limits;
}

QString excessOf(PageActivity activity)
{
    return QString::fromLatin1(kActivityLimits.at(static_cast<std::size_t>(activity)).excess);
}

QString reasonFor(QWebEngineLoadingInfo::ErrorDomain domain)
{
    switch (domain) {
    case QWebEngineLoadingInfo::ConnectionErrorDomain:
        return QStringLiteral("The service cannot be reached. Check the network connection.");
    case QWebEngineLoadingInfo::DnsErrorDomain:
        return QStringLiteral("The address of the service could not be found. Check the network "
                              "connection.");
    case QWebEngineLoadingInfo::CertificateErrorDomain:
        return QStringLiteral("This computer does not trust the certificate of the service.");
    case QWebEngineLoadingInfo::HttpErrorDomain:
        return QStringLiteral("The service sent an invalid response.");
    default: return QStringLiteral("The page could not be loaded.");
    }
}

} // namespace

WebServicePage::WebServicePage(const QString& baseUrl,
                               std::function<void(const QUrl&)> openInBrowser)
    : baseUrl_(baseUrl, QUrl::StrictMode),
      pageDependencies_{std::move(openInBrowser),
                        [this](PageActivity activity, double events) { count(activity, events); }},
      profile_(makeProfile(baseUrl_, pageDependencies_.count)),
      widget_(new QStackedWidget)
{
    qRegisterMetaType<PageSignal>();
    loadTimer_.setObjectName(QStringLiteral("loadTimer"));
    loadTimer_.setSingleShot(true);
    loadTimer_.setInterval(kLoadLimit);
    responseTimer_.setObjectName(QStringLiteral("responseTimer"));
    responseTimer_.setInterval(kResponseLimit / kResponseChecks);
    connect(&loadTimer_, &QTimer::timeout, this,
            [this] { fail(QStringLiteral("The service does not respond."), {}); });
    connect(&responseTimer_, &QTimer::timeout, this, &WebServicePage::checkResponse);
    overloadTimer_.setSingleShot(true);
    connect(&overloadTimer_, &QTimer::timeout, this, [this] { endOverload(excess_); });
    makeView();
    replacePage();
}

WebServicePage::~WebServicePage()
{
    delete widget_.data();
}

QWidget* WebServicePage::widget()
{
    return widget_;
}

LoadNumber WebServicePage::load(const QUrl& url)
{
    ++load_;
    if (!view_)
        return load_; // the window has been destroyed
    url_ = url;
    beginLoad();
    return load_;
}

void WebServicePage::makeView()
{
    view_ = new QWebEngineView;
    view_->setAccessibleName(QStringLiteral("Upload page"));
    view_->setContextMenuPolicy(Qt::PreventContextMenu);
    view_->setAcceptDrops(false); // the window handles drops
    loadingPanel_ = new LoadingPanel(widget_);
    failurePanel_ = new FailurePanel(widget_);
    inputFilter_ = new PageInputFilter(widget_);
    for (QWidget* const part : {static_cast<QWidget*>(loadingPanel_), static_cast<QWidget*>(view_),
                                static_cast<QWidget*>(failurePanel_)})
        widget_->addWidget(part);
    widget_->setFocusProxy(loadingPanel_);
    connect(view_, &QObject::destroyed, &loadTimer_, &QTimer::stop);
    connect(view_, &QObject::destroyed, &responseTimer_, &QTimer::stop);
    connect(failurePanel_, &FailurePanel::reloadRequested, this, &WebServicePage::beginLoad);

    auto* const reload = new QAction(QStringLiteral("Reload Page"), widget_);
    reload->setObjectName(QStringLiteral("reloadAction"));
    reload->setShortcut(Qt::Key_F5); // works while the page or a panel is visible
    connect(reload, &QAction::triggered, this, &WebServicePage::beginLoad);
    widget_->addAction(reload);
}

void WebServicePage::replacePage()
{
    RestrictedPage* const previous = page_;
    page_ = new RestrictedPage(profile_.get(), pageDependencies_, log_, widget_);
    activity_ = activityLimits();
    isOverloaded_ = false;
    overloadTimer_.stop();
    page_->setBackgroundColor(widget_->palette().color(QPalette::Base)); // no white flash when dark
    ++pageNumber_;
    connectPage();
    view_->setPage(page_);
    delete previous;
}

// The connections are queued, because a slot may open a dialog or replace the page, which is not
// allowed inside a call from the browser engine.
void WebServicePage::connectPage()
{
    const auto ifCurrent = [this, number = pageNumber_](auto slot) {
        return [this, number, slot](const auto&... arguments) {
            if (number == pageNumber_ && view_)
                (this->*slot)(arguments...);
        };
    };
    auto* const watcher = new TitleWatcher(page_, baseUrl_, log_);
    connect(watcher, &TitleWatcher::documentCreated, this,
            ifCurrent(&WebServicePage::documentCreated), Qt::QueuedConnection);
    connect(watcher, &TitleWatcher::linkClicked, page_, &RestrictedPage::setClickedLink);
    connect(watcher, &TitleWatcher::titleReceived, this, ifCurrent(&WebServicePage::countTitle));
    connect(watcher, &TitleWatcher::overloaded, this, ifCurrent(&WebServicePage::endTitles),
            Qt::QueuedConnection);
    connect(
        watcher, &TitleWatcher::titleReceived, this,
        [this, load = load_](PageSignal signal) {
            signal.load = load;
            Q_EMIT titleReceived(signal);
        },
        Qt::QueuedConnection);
    connect(page_, &QWebEnginePage::loadingChanged, this,
            ifCurrent(&WebServicePage::loadingChanged), Qt::QueuedConnection);
    connect(page_, &QWebEnginePage::loadProgress, this, [this] {
        if (loadTimer_.isActive())
            loadTimer_.start();
    });
    connect(
        page_, &QWebEnginePage::renderProcessTerminated, this,
        [this, number = pageNumber_](QWebEnginePage::RenderProcessTerminationStatus, int code) {
            if (number == pageNumber_)
                fail(QStringLiteral("The page stopped unexpectedly. The queued files are kept."),
                     QStringLiteral("Exit code %1").arg(code));
        },
        Qt::QueuedConnection);
}

void WebServicePage::count(PageActivity activity, double events)
{
    EventLimit& limit = activity_.at(static_cast<std::size_t>(activity));
    if (isOverloaded_ || limit.take(EventLimit::Time::clock::now(), events))
        return;
    isOverloaded_ = true;
    excess_ = excessOf(activity);
    overloadTimer_.start(); // the page may be in a call
}

void WebServicePage::countTitle(const PageSignal& /*signal*/)
{
    count(PageActivity::Title, 1);
}

void WebServicePage::endTitles()
{
    endOverload(QStringLiteral("Too many titles at once."));
}

void WebServicePage::endOverload(const QString& what)
{
    fail(QStringLiteral("The upload page overloads this program. It was stopped, and the queued "
                        "files are kept."),
         what);
}

void WebServicePage::beginLoad()
{
    if (!view_ || url_.isEmpty())
        return;
    inputFilter_->beginLoad();
    replacePage();
    foreignOrigin_.clear();
    unansweredChecks_ = 0;
    show(State::Waiting);
    loadTimer_.start();
    responseTimer_.start();
    page_->load(url_);
}

void WebServicePage::documentCreated(const QString& origin)
{
    loadTimer_.stop();
    page_->limitMemory();
    count(PageActivity::Document, 1);
    unansweredChecks_ = 0; // a new document may have a new process
    if (origin != originOf(baseUrl_) && origin != std::exchange(foreignOrigin_, origin))
        log_.write("The titles of " + origin.toStdString() + " are ignored.");
    if (state_ == State::Waiting)
        show(State::Arrived);
}

void WebServicePage::loadingChanged(const QWebEngineLoadingInfo& info)
{
    using Info = QWebEngineLoadingInfo;
    if (info.status() == Info::LoadStartedStatus || state_ == State::Failed)
        return;
    if (info.status() == Info::LoadSucceededStatus) {
        loadTimer_.stop();
        show(State::Loaded);
        return;
    }
    // With a document, an aborted navigation is one that the document began and that was refused,
    // became a download or had no content: the document remains. The text of an HTTP error that
    // replaces a complete document is the page's own response to the user.
    const bool isAborted = info.errorCode() == kErrAborted;
    const bool isHttpStatus = info.errorDomain() == Info::HttpStatusCodeDomain;
    if ((isAborted && state_ != State::Waiting) || (isHttpStatus && state_ == State::Loaded))
        return;
    if (isAborted || isHttpStatus)
        fail(QStringLiteral("The service responded, but not with its upload page."),
             isAborted ? QString() : QStringLiteral("HTTP status %1").arg(info.errorCode()));
    else
        fail(reasonFor(info.errorDomain()), info.errorString());
}

// Runs an empty script in the page. A document in an endless loop does not run it.
void WebServicePage::checkResponse()
{
    if (!page_ || (state_ != State::Arrived && state_ != State::Loaded))
        return;
    if (unansweredChecks_ == kResponseChecks) {
        fail(
            QStringLiteral("The upload page does not respond. It was stopped, and the queued files "
                           "are kept."),
            {});
        return;
    }
    ++unansweredChecks_;
    page_->runJavaScript(QStringLiteral("0"), kWatcherWorld,
                         [this, number = pageNumber_](const QVariant&) {
                             if (number == pageNumber_)
                                 unansweredChecks_ = 0;
                         });
}

void WebServicePage::fail(const QString& reason, const QString& detail)
{
    if (!view_)
        return; // the window has been destroyed, and the page's process with it
    logSystem("The upload page is not available: {} {}", reason.toStdString(),
              detail.toStdString());
    loadTimer_.stop();
    responseTimer_.stop();
    replacePage(); // ends the document and its process
    failurePanel_->setFailure(reason, detail);
    show(State::Failed);
}

void WebServicePage::show(State state)
{
    state_ = state;
    QWidget* part = view_;
    if (state == State::Waiting)
        part = loadingPanel_;
    else if (state == State::Failed)
        part = failurePanel_;
    if (widget_->currentWidget() == part)
        return;
    // No widget has the focus after the page's process has ended.
    const QWidget* const focus = widget_->window()->focusWidget();
    const bool hadFocus = focus == nullptr || widget_->isAncestorOf(focus);
    widget_->setCurrentWidget(part);
    widget_->setFocusProxy(part); // the window gives the focus to widget()
    if (hadFocus)
        part->setFocus(Qt::OtherFocusReason);
}

} // namespace quenmoor
