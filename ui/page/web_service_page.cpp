#include "ui/page/web_service_page.h"

#include "base/log.h"
#include "ui/page/failure_panel.h"

#include <QApplication>
#include <QAuthenticator>
#include <QFile>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QStackedWidget>
#include <QWebChannel>
#include <QWebEngineCertificateError>
#include <QWebEngineClientCertificateSelection>
#include <QWebEngineDownloadRequest>
#include <QWebEngineFileSystemAccessRequest>
#include <QWebEngineFullScreenRequest>
#include <QWebEngineLoadingInfo>
#include <QWebEngineNewWindowRequest>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineQuotaRequest>
#include <QWebEngineRegisterProtocolHandlerRequest>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <QWebEngineView>

namespace quenmoor {
namespace {

constexpr int kAborted = -3; // Chromium's ERR_ABORTED: no page came, as with a download
constexpr qsizetype kLongestValue = 65'536; // characters; no session, token or URL comes near
constexpr quint32 kWatcherWorld = QWebEngineScript::ApplicationWorld;

bool isWeb(const QUrl& url)
{
    return url.scheme() == u"https" || url.scheme() == u"http";
}

bool haveSameOrigin(const QUrl& one, const QUrl& other)
{
    return one.scheme() == other.scheme() && one.host() == other.host() &&
           one.port() == other.port();
}

// The origin as a script sees it.
QString originOf(const QUrl& url)
{
    const auto parts =
        QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment;
    return QString::fromLatin1(url.adjusted(parts).toEncoded());
}

QString reasonFor(QWebEngineLoadingInfo::ErrorDomain domain)
{
    switch (domain) {
    case QWebEngineLoadingInfo::ConnectionErrorDomain:
        return QStringLiteral("The service cannot be reached. Check the network connection.");
    case QWebEngineLoadingInfo::DnsErrorDomain:
        return QStringLiteral("The address of the service is not known to the network.");
    case QWebEngineLoadingInfo::CertificateErrorDomain:
        return QStringLiteral("The service could not prove its identity: this computer does not "
                              "trust its certificate.");
    case QWebEngineLoadingInfo::HttpErrorDomain:
        return QStringLiteral("The answer of the service cannot be read.");
    default: return QStringLiteral("The page could not be loaded.");
    }
}

std::optional<QString> valueOf(const QJsonObject& message, const QString& key)
{
    const QJsonValue value = message.value(key);
    if (!value.isString())
        return std::nullopt;
    QString text = value.toString();
    if (text.size() > kLongestValue) {
        logSystem("The page's {} is too long and counts as absent.", key.toStdString());
        return std::nullopt;
    }
    return text;
}

// The end of the channel from the watching script. Reachable from that script's world only.
class TitleReceiver : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    Q_INVOKABLE void receive(const QJsonObject& message)
    {
        PageSignal signal;
        signal.title = message.value(QStringLiteral("title")).toString().left(kLongestValue);
        signal.session = valueOf(message, QStringLiteral("session"));
        signal.token = valueOf(message, QStringLiteral("token"));
        signal.macMajor = valueOf(message, QStringLiteral("mac_major"));
        signal.macMinor = valueOf(message, QStringLiteral("mac_minor"));
        signal.macBuild = valueOf(message, QStringLiteral("mac_build"));
        signal.updateUrl = valueOf(message, QStringLiteral("update_url"));
        Q_EMIT received(signal);
    }

Q_SIGNALS:
    void received(const quenmoor::PageSignal& signal);
};

// A page that asks the user nothing and leads nowhere but to its service.
class UploadPage : public QWebEnginePage {
public:
    UploadPage(QWebEngineProfile* profile, QUrl service,
               const std::function<void(const QUrl&)>& openInBrowser, QObject* parent)
        : QWebEnginePage(profile, parent),
          service_(std::move(service)),
          openInBrowser_(openInBrowser)
    {
    }

    // While another page is on its way, the old one may not hold the window back.
    void setLeaving(bool leaving) { leaving_ = leaving; }

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override
    {
        if (!isMainFrame)
            return isWeb(url) || url.scheme() == u"about";
        // Nothing leads back from another site, so a link to one opens where there is a way back.
        if (type == NavigationTypeLinkClicked && isWeb(url) && !haveSameOrigin(url, service_)) {
            openInBrowser_(url);
            return false;
        }
        return isWeb(url);
    }

    QStringList chooseFiles(FileSelectionMode /*mode*/, const QStringList& /*oldFiles*/,
                            const QStringList& /*acceptedMimeTypes*/) override
    {
        return {};
    }

    void javaScriptAlert(const QUrl& /*securityOrigin*/, const QString& msg) override
    {
        logSystem("The page wants to say: {}", msg.left(kLongestValue).toStdString());
    }

    bool javaScriptConfirm(const QUrl& /*securityOrigin*/, const QString& /*msg*/) override
    {
        return leaving_;
    }

    bool javaScriptPrompt(const QUrl& /*securityOrigin*/, const QString& /*msg*/,
                          const QString& /*defaultValue*/, QString* /*result*/) override
    {
        return false;
    }

private:
    const QUrl service_;
    const std::function<void(const QUrl&)>& openInBrowser_;
    bool leaving_ = false;
};

void applySettings(QWebEngineSettings& settings)
{
    using S = QWebEngineSettings;
    for (const S::WebAttribute off :
         {S::JavascriptCanOpenWindows, S::JavascriptCanAccessClipboard, S::JavascriptCanPaste,
          S::LocalContentCanAccessFileUrls, S::LocalContentCanAccessRemoteUrls,
          S::HyperlinkAuditingEnabled, S::ErrorPageEnabled, S::PluginsEnabled, S::PdfViewerEnabled,
          S::FullScreenSupportEnabled, S::ScreenCaptureEnabled, S::AutoLoadIconsForPage,
          S::AllowRunningInsecureContent, S::AllowGeolocationOnInsecureOrigins,
          S::AllowWindowActivationFromJavaScript, S::NavigateOnDropEnabled, S::DnsPrefetchEnabled})
        settings.setAttribute(off, false);
    settings.setAttribute(S::WebRTCPublicInterfacesOnly, true);
    settings.setUnknownUrlSchemePolicy(S::DisallowUnknownUrlSchemes);
}

// What the browser engine takes only from its surroundings, and only before it starts.
void prepareEngine()
{
    // Compiled shaders are the one thing that Qt itself would keep on disk.
    QCoreApplication::setAttribute(Qt::AA_DisableShaderDiskCache);
    qputenv("QSG_RHI_DISABLE_DISK_CACHE", "1");

    // The engine describes itself at length on standard error.
    QLoggingCategory::setFilterRules(QStringLiteral("qt.webenginecontext.info=false"));

    const QPalette palette = QGuiApplication::palette();
    const bool isDark = palette.color(QPalette::Window).lightness() <
                        palette.color(QPalette::WindowText).lightness();
    constexpr const char* kFlags = "QTWEBENGINE_CHROMIUM_FLAGS";
    if (isDark) // a page with a dark face shows it
        qputenv(kFlags, qgetenv(kFlags) + " --blink-settings=preferredColorScheme=0");
}

// Made first, so that the engine has not started.
std::unique_ptr<QWebEngineProfile> makeProfile()
{
    prepareEngine();
    // A profile without a name is off the record.
    return std::make_unique<QWebEngineProfile>();
}

} // namespace

WebServicePage::WebServicePage(const QString& baseUrl,
                               std::function<void(const QUrl&)> openInBrowser,
                               std::chrono::milliseconds patience)
    : baseUrl_(baseUrl, QUrl::StrictMode),
      openInBrowser_(std::move(openInBrowser)),
      profile_(makeProfile()),
      widget_(new QStackedWidget)
{
    qRegisterMetaType<PageSignal>();
    patience_.setSingleShot(true);
    patience_.setInterval(patience);
    connect(&patience_, &QTimer::timeout, this, [this] {
        showFailure(QStringLiteral("The service does not answer."), {});
        view_->stop();
    });
    makeView();
    refuseWishes();
    watchTitles();
    connectPage();
}

WebServicePage::~WebServicePage()
{
    delete widget_.data();
}

QWidget* WebServicePage::widget()
{
    return widget_;
}

void WebServicePage::load(const QUrl& url)
{
    if (!view_)
        return; // the window is gone
    url_ = url;
    static_cast<UploadPage*>(view_->page())->setLeaving(true);
    const bool hadFocus = widget_->isAncestorOf(QApplication::focusWidget());
    widget_->setCurrentWidget(view_);
    if (hadFocus)
        view_->setFocus();
    patience_.start();
    view_->load(url);
}

void WebServicePage::makeView()
{
    view_ = new QWebEngineView;
    auto* const page = new UploadPage(profile_.get(), baseUrl_, openInBrowser_, view_);
    applySettings(*page->settings());
    page->setBackgroundColor(widget_->palette().color(QPalette::Base)); // no white flash on dark
    view_->setPage(page);
    view_->setAccessibleName(QStringLiteral("Upload page"));
    view_->setContextMenuPolicy(Qt::PreventContextMenu);
    view_->setAcceptDrops(false); // a drop is the window's to take
    panel_ = new FailurePanel(widget_);
    widget_->addWidget(view_);
    widget_->addWidget(panel_);
    connect(view_, &QObject::destroyed, &patience_, &QTimer::stop);
    connect(panel_, &FailurePanel::reloadRequested, this, [this] { load(url_); });
}

void WebServicePage::connectPage()
{
    const QWebEnginePage* const page = view_->page();
    connect(page, &QWebEnginePage::loadingChanged, this, &WebServicePage::loadingChanged);
    connect(page, &QWebEnginePage::loadProgress, this, [this] {
        if (patience_.isActive())
            patience_.start();
    });
    connect(page, &QWebEnginePage::renderProcessTerminated, this,
            [this](QWebEnginePage::RenderProcessTerminationStatus /*status*/, int exitCode) {
                showFailure(QStringLiteral("The page stopped unexpectedly. The files that wait are "
                                           "kept."),
                            QStringLiteral("Exit code %1").arg(exitCode));
            });
}

void WebServicePage::refuseWishes()
{
    QWebEnginePage* const page = view_->page();
    using Page = QWebEnginePage;
    connect(page, &Page::certificateError, this,
            [](QWebEngineCertificateError error) { error.rejectCertificate(); });
    connect(page, &Page::selectClientCertificate, this,
            [](QWebEngineClientCertificateSelection selection) { selection.selectNone(); });
    connect(page, &Page::featurePermissionRequested, this,
            [page](const QUrl& origin, Page::Feature feature) {
                page->setFeaturePermission(origin, feature, Page::PermissionDeniedByUser);
            });
    connect(page, &Page::fullScreenRequested, this,
            [](QWebEngineFullScreenRequest request) { request.reject(); });
    connect(page, &Page::quotaRequested, this,
            [](QWebEngineQuotaRequest request) { request.reject(); });
    connect(page, &Page::registerProtocolHandlerRequested, this,
            [](QWebEngineRegisterProtocolHandlerRequest request) { request.reject(); });
    connect(page, &Page::fileSystemAccessRequested, this,
            [](QWebEngineFileSystemAccessRequest request) { request.reject(); });
    connect(page, &Page::authenticationRequired, this,
            [](const QUrl& /*url*/, QAuthenticator* login) { *login = {}; });
    connect(page, &Page::newWindowRequested, this, [this](QWebEngineNewWindowRequest& request) {
        if (request.isUserInitiated() && isWeb(request.requestedUrl()))
            openInBrowser_(request.requestedUrl());
    });
    connect(profile_.get(), &QWebEngineProfile::downloadRequested, this,
            [](QWebEngineDownloadRequest* download) { download->cancel(); });
}

void WebServicePage::watchTitles()
{
    QFile file(QStringLiteral(":/ui/title_watcher.js"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The program was built without the script that watches the page.");
    QString source = QString::fromUtf8(file.readAll());
    source.replace(QStringLiteral("__SERVICE_ORIGIN__"), originOf(baseUrl_));

    QWebEngineScript script;
    script.setName(QStringLiteral("title watcher"));
    script.setSourceCode(source);
    script.setWorldId(kWatcherWorld);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setRunsOnSubFrames(false);

    QWebEnginePage* const page = view_->page();
    page->scripts().insert(script);
    auto* const channel = new QWebChannel(page);
    auto* const receiver = new TitleReceiver(page);
    channel->registerObject(QStringLiteral("titles"), receiver);
    page->setWebChannel(channel, kWatcherWorld);
    // Queued: whoever hears of a title may open a dialog or load another page, and must not do so
    // from within the browser's own call.
    connect(receiver, &TitleReceiver::received, this, &WebServicePage::titleReceived,
            Qt::QueuedConnection);
}

void WebServicePage::loadingChanged(const QWebEngineLoadingInfo& info)
{
    using Info = QWebEngineLoadingInfo;
    if (!view_)
        return; // a load cut off by the end of the window
    if (info.status() == Info::LoadStartedStatus) {
        static_cast<UploadPage*>(view_->page())->setLeaving(false);
        return;
    }
    if (info.status() == Info::LoadSucceededStatus) {
        patience_.stop();
        widget_->setCurrentWidget(view_); // a page may load itself again after a failure
        return;
    }
    const bool wasAborted = info.errorCode() == kAborted;
    // Cut off by a later load, which reports for itself, or given up already.
    if (wasAborted && (view_->page()->isLoading() || widget_->currentWidget() == panel_))
        return;
    if (wasAborted || info.errorDomain() == Info::HttpStatusCodeDomain)
        showFailure(QStringLiteral("The service answered, but not with its upload page."),
                    wasAborted ? QString()
                               : QStringLiteral("HTTP status %1").arg(info.errorCode()));
    else
        showFailure(reasonFor(info.errorDomain()), info.errorString());
}

void WebServicePage::showFailure(const QString& reason, const QString& detail)
{
    if (!view_)
        return; // a process ended with the window
    patience_.stop();
    logSystem("The upload page is not available: {} {}", reason.toStdString(),
              detail.toStdString());
    const bool hadFocus = widget_->isAncestorOf(QApplication::focusWidget());
    panel_->setFailure(reason, detail);
    widget_->setCurrentWidget(panel_);
    if (hadFocus)
        panel_->focusReload();
}

} // namespace quenmoor

#include "web_service_page.moc"
