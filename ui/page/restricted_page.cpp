#include "ui/page/restricted_page.h"

#include "base/log.h"
#include "ui/page/web_service_page.h"

#include <QAuthenticator>
#include <QGuiApplication>
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
#include <utility>

namespace quenmoor {
namespace {

constexpr qsizetype kMaxLoggedText = 1000; // characters

bool haveSameOrigin(const QUrl& a, const QUrl& b)
{
    return a.scheme() == b.scheme() && a.host() == b.host() && a.port() == b.port();
}

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

std::unique_ptr<QWebEngineProfile> makeProfile()
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
    return profile;
}

RestrictedPage::RestrictedPage(QWebEngineProfile* profile, QUrl service,
                               const std::function<void(const QUrl&)>& openInBrowser, PageLog& log,
                               QObject* parent)
    : QWebEnginePage(profile, parent),
      service_(std::move(service)),
      openInBrowser_(openInBrowser),
      log_(log)
{
    applySettings();
    rejectRequests();
}

bool RestrictedPage::acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame)
{
    if (!isMainFrame)
        return isWebUrl(url) || url.scheme() == u"about";
    // The window has no Back button, so a link to another site opens in the user's browser.
    if (type == NavigationTypeLinkClicked && isWebUrl(url) && !haveSameOrigin(url, service_)) {
        openInBrowser_(url);
        return false;
    }
    return isWebUrl(url);
}

QStringList RestrictedPage::chooseFiles(FileSelectionMode /*mode*/, const QStringList& /*oldFiles*/,
                                        const QStringList& /*acceptedMimeTypes*/)
{
    return {};
}

void RestrictedPage::javaScriptAlert(const QUrl& /*securityOrigin*/, const QString& msg)
{
    log_.write("The page called alert(): " + msg.left(kMaxLoggedText).toStdString());
}

bool RestrictedPage::javaScriptConfirm(const QUrl& /*securityOrigin*/, const QString& /*msg*/)
{
    return false;
}

bool RestrictedPage::javaScriptPrompt(const QUrl& /*securityOrigin*/, const QString& /*msg*/,
                                      const QString& /*defaultValue*/, QString* /*result*/)
{
    return false;
}

void RestrictedPage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel /*level*/,
                                              const QString& message, int line,
                                              const QString& source)
{
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
    settings()->setAttribute(S::WebRTCPublicInterfacesOnly, true);
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
                if (request.isUserInitiated() && isWebUrl(request.requestedUrl()))
                    openInBrowser_(request.requestedUrl());
            });
    connect(profile(), &QWebEngineProfile::downloadRequested, this,
            [](QWebEngineDownloadRequest* download) { download->cancel(); });
}

} // namespace quenmoor
