#include "ui/page/restricted_page.h"

#include "base/log.h"
#include "ui/page/web_service_page.h"

#ifdef __linux__
#include <sys/resource.h>
#endif

#include <QAuthenticator>
#include <QGuiApplication>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QPalette>
#include <QWebEngineCertificateError>
#include <QWebEngineClientCertificateSelection>
#include <QWebEngineDownloadRequest>
#include <QWebEngineFileSystemAccessRequest>
#include <QWebEngineFullScreenRequest>
#include <QWebEngineNewWindowRequest>
#include <QWebEngineProfile>
#include <QWebEngineQuotaRequest>
#include <QWebEngineRegisterProtocolHandlerRequest>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>
#include <utility>

namespace quenmoor {
namespace {

constexpr qsizetype kMaxLoggedText = 1000; // characters

bool isThisComputer(QString host)
{
    if (host.endsWith(u'.'))
        host.chop(1);
    const QHostAddress address(host);
    return host == u"localhost" || host.endsWith(u".localhost") || address.isLoopback() ||
           address == QHostAddress::AnyIPv4 || address == QHostAddress::AnyIPv6;
}

int portOf(const QUrl& url)
{
    constexpr int kHttp = 80;
    constexpr int kHttps = 443;
    return url.port(url.scheme() == u"http" || url.scheme() == u"ws" ? kHttp : kHttps);
}

// Main thread only.
class RequestFilter : public QWebEngineUrlRequestInterceptor {
public:
    RequestFilter(QUrl service, CountActivity count, QObject* parent)
        : QWebEngineUrlRequestInterceptor(parent),
          service_(std::move(service)),
          count_(std::move(count))
    {
    }

    void interceptRequest(QWebEngineUrlRequestInfo& info) override
    {
        using Info = QWebEngineUrlRequestInfo;
        count_(PageActivity::Request, 1);
        // A service worker would answer the loads of later files.
        if (info.resourceType() == Info::ResourceTypeServiceWorker ||
            (info.resourceType() != Info::ResourceTypeMainFrame &&
             !mayRequest(info.requestUrl(), service_)))
            info.block(true);
    }

private:
    const QUrl service_;
    const CountActivity count_;
};

} // namespace

bool isWebUrl(const QUrl& url)
{
    return url.scheme() == u"https" || url.scheme() == u"http";
}

void prepareBrowserEngine()
{
    // Without these, Qt and the OpenGL drivers store compiled shaders on disk.
    QCoreApplication::setAttribute(Qt::AA_DisableShaderDiskCache);
    for (const char* name :
         {"QSG_RHI_DISABLE_DISK_CACHE", "MESA_SHADER_CACHE_DISABLE", "MESA_GLSL_CACHE_DISABLE"})
        qputenv(name, "1");
}

bool mayRequest(const QUrl& url, const QUrl& service)
{
    return !isThisComputer(url.host()) ||
           (url.host() == service.host() && portOf(url) == portOf(service));
}

std::unique_ptr<QWebEngineProfile> makeProfile(const QUrl& service, CountActivity count)
{
    static bool isFirst = true;
    if (std::exchange(isFirst, false)) {
        // The engine logs its configuration to standard error at every start.
        QLoggingCategory::setFilterRules(QStringLiteral("qt.webenginecontext.info=false"));
        constexpr const char* kFlags = "QTWEBENGINE_CHROMIUM_FLAGS";
        const QPalette palette = QGuiApplication::palette();
        const bool isDark = palette.color(QPalette::Window).lightness() <
                            palette.color(QPalette::WindowText).lightness();
        if (isDark) // selects the dark style sheet of a page that has one
            qputenv(kFlags, qgetenv(kFlags) + " --blink-settings=preferredColorScheme=0");
    }
    // A profile without a name is off the record: what a page stores is in memory. Web SQL would
    // still create files, so the path is one where no folder can be created.
    auto profile = std::make_unique<QWebEngineProfile>();
    profile->setPersistentStoragePath(QStringLiteral("/dev/null"));
    profile->setCachePath(QStringLiteral("/dev/null"));
    profile->setUrlRequestInterceptor(new RequestFilter(service, std::move(count), profile.get()));
    return profile;
}

RestrictedPage::RestrictedPage(QWebEngineProfile* profile, const Dependencies& dependencies,
                               PageLog& log, QObject* parent)
    : QWebEnginePage(profile, parent), deps_(dependencies), log_(log)
{
    applySettings();
    rejectRequests();
}

void RestrictedPage::limitMemory() const
{
#ifdef __linux__
    // Far above what a page needs. The process cannot exceed the limit, however fast it allocates.
    constexpr rlim_t kBytes = 2ULL << 30U;
    const auto process = static_cast<pid_t>(renderProcessPid());
    rlimit limit{};
    if (process > 0 && prlimit(process, RLIMIT_DATA, nullptr, &limit) == 0) {
        limit.rlim_cur = std::min(limit.rlim_max, kBytes);
        prlimit(process, RLIMIT_DATA, &limit, nullptr);
    }
#endif
}

bool RestrictedPage::acceptNavigationRequest(const QUrl& url, NavigationType /*type*/,
                                             bool isMainFrame)
{
    deps_.count(PageActivity::Request, 1);
    if (!isMainFrame)
        return true; // the engine refuses local URLs
    if (!isWebUrl(url))
        return false;
    // The window has no Back button, so a link to another site opens in the user's browser. The
    // type of the navigation cannot be used: it is a clicked link also when a script sets the
    // location.
    if (url == clickedLink_) {
        clickedLink_.clear();
        deps_.openInBrowser(url);
        return false;
    }
    return true;
}

void RestrictedPage::countDialog()
{
    constexpr double kMessages = 50; // the page waits for each dialog, so it opens few in a second
    deps_.count(PageActivity::Message, kMessages);
}

void RestrictedPage::countMessage(const QString& text)
{
    constexpr double kUsualLength = 4000; // characters
    deps_.count(PageActivity::Message, std::max(1.0, double(text.size()) / kUsualLength));
}

QStringList RestrictedPage::chooseFiles(FileSelectionMode /*mode*/, const QStringList& /*oldFiles*/,
                                        const QStringList& /*acceptedMimeTypes*/)
{
    return {};
}

void RestrictedPage::javaScriptAlert(const QUrl& /*securityOrigin*/, const QString& msg)
{
    countDialog();
    log_.write("The page called alert(): " + msg.left(kMaxLoggedText).toStdString());
}

bool RestrictedPage::javaScriptConfirm(const QUrl& /*securityOrigin*/, const QString& /*msg*/)
{
    countDialog();
    return false;
}

bool RestrictedPage::javaScriptPrompt(const QUrl& /*securityOrigin*/, const QString& /*msg*/,
                                      const QString& /*defaultValue*/, QString* /*result*/)
{
    countDialog();
    return false;
}

void RestrictedPage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel /*level*/,
                                              const QString& message, int line,
                                              const QString& source)
{
    countMessage(message);
    log_.write(fmt::format("Page console: {} ({}, line {})",
                           message.left(kMaxLoggedText).toStdString(),
                           QUrl(source).fileName().left(kMaxLoggedText).toStdString(), line));
}

void RestrictedPage::applySettings()
{
    using S = QWebEngineSettings;
    for (const S::WebAttribute off :
         {S::JavascriptCanOpenWindows, S::JavascriptCanAccessClipboard, S::JavascriptCanPaste,
          S::LocalContentCanAccessFileUrls, S::LocalContentCanAccessRemoteUrls,
          S::HyperlinkAuditingEnabled, S::ErrorPageEnabled, S::PluginsEnabled, S::PdfViewerEnabled,
          S::FullScreenSupportEnabled, S::ScreenCaptureEnabled, S::AutoLoadIconsForPage,
          S::AllowRunningInsecureContent, S::AllowGeolocationOnInsecureOrigins,
          S::AllowWindowActivationFromJavaScript, S::NavigateOnDropEnabled, S::DnsPrefetchEnabled})
        settings()->setAttribute(off, false);
    for (const S::WebAttribute on : {S::WebRTCPublicInterfacesOnly, S::PlaybackRequiresUserGesture})
        settings()->setAttribute(on, true);
    settings()->setUnknownUrlSchemePolicy(S::DisallowUnknownUrlSchemes);
}

void RestrictedPage::rejectRequests()
{
    connect(this, &QWebEnginePage::certificateError, this,
            [](QWebEngineCertificateError error) { error.rejectCertificate(); });
    connect(this, &QWebEnginePage::selectClientCertificate, this,
            [](QWebEngineClientCertificateSelection selection) { selection.selectNone(); });
    connect(this, &QWebEnginePage::featurePermissionRequested, this,
            [this](const QUrl& origin, Feature feature) {
                deps_.count(PageActivity::Request, 1);
                setFeaturePermission(origin, feature, PermissionDeniedByUser);
            });
    connect(this, &QWebEnginePage::fullScreenRequested, this,
            [](QWebEngineFullScreenRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::quotaRequested, this,
            [](QWebEngineQuotaRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::registerProtocolHandlerRequested, this,
            [](QWebEngineRegisterProtocolHandlerRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::fileSystemAccessRequested, this,
            [](QWebEngineFileSystemAccessRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::authenticationRequired, this,
            [](const QUrl& /*url*/, QAuthenticator* login) { *login = {}; });
    connect(this, &QWebEnginePage::newWindowRequested, this,
            [this](QWebEngineNewWindowRequest& request) {
                deps_.count(PageActivity::Request, 1);
                if (request.isUserInitiated() && isWebUrl(request.requestedUrl()))
                    deps_.openInBrowser(request.requestedUrl());
            });
    connect(profile(), &QWebEngineProfile::downloadRequested, this,
            [this](QWebEngineDownloadRequest* download) {
                deps_.count(PageActivity::Request, 1);
                download->cancel();
            });
}

} // namespace quenmoor
