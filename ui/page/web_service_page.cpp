#include "ui/page/web_service_page.h"

#include "base/log.h"
#include "ui/appearance.h"
#include "ui/page/restricted_page.h"

#include <QApplication>
#include <QFile>
#include <QJsonObject>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEngineLoadingInfo>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineView>

namespace quenmoor {
namespace {

constexpr int kErrAborted = -3; // Chromium's ERR_ABORTED, also reported for a download
constexpr qsizetype kMaxValueLength = 65'536; // characters; far above any session, token or URL
constexpr int kPanelTextWidth = 52;           // in average characters
constexpr quint32 kWatcherWorld = QWebEngineScript::ApplicationWorld;

// The origin as window.origin returns it.
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
        return QStringLiteral("The address of the service could not be found. Check the network "
                              "connection.");
    case QWebEngineLoadingInfo::CertificateErrorDomain:
        return QStringLiteral("This computer does not trust the certificate of the service.");
    case QWebEngineLoadingInfo::HttpErrorDomain:
        return QStringLiteral("The service sent an invalid response.");
    default: return QStringLiteral("The page could not be loaded.");
    }
}

std::optional<QString> valueOf(const QJsonObject& message, const QString& key)
{
    const QJsonValue value = message.value(key);
    if (!value.isString())
        return std::nullopt;
    QString text = value.toString();
    if (text.size() > kMaxValueLength) {
        logSystem("The value of the page's element {} is too long and is ignored.",
                  key.toStdString());
        return std::nullopt;
    }
    return text;
}

// Receives the messages of the title watcher. Only scripts of its isolated world can reach it.
class TitleReceiver : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    Q_INVOKABLE void receive(const QJsonObject& message)
    {
        PageSignal signal;
        signal.title = message.value(QStringLiteral("title")).toString().left(kMaxValueLength);
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

QLabel* makePanelText(const QString& name)
{
    auto* const label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText); // the text may come from the network
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignHCenter);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

FailurePanel::FailurePanel(QWidget* parent)
    : QWidget(parent),
      reason_(makePanelText(QStringLiteral("failureReason"))),
      detail_(makePanelText(QStringLiteral("failureDetail"))),
      reload_(new QPushButton(QStringLiteral("&Reload")))
{
    setObjectName(QStringLiteral("failurePanel"));
    auto* const heading = makePanelText(QStringLiteral("failureHeading"));
    heading->setFont(scaledFont(heading->font(), kHeadingScale));
    heading->setText(QStringLiteral("The upload page is not available"));
    reload_->setObjectName(QStringLiteral("reloadButton"));
    reload_->setAccessibleName(QStringLiteral("Reload the upload page"));
    reload_->setAutoDefault(true); // the Return key activates it, as does the space bar
    connect(reload_, &QPushButton::clicked, this, &FailurePanel::reloadRequested);

    const int line = fontMetrics().height();
    auto* const column = new QWidget;
    column->setMaximumWidth(fontMetrics().averageCharWidth() * kPanelTextWidth);
    auto* const rows = new QVBoxLayout(column);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(line / 2);
    rows->addStretch();
    rows->addWidget(heading);
    rows->addWidget(reason_);
    rows->addWidget(detail_);
    rows->addSpacing(line / 2);
    rows->addWidget(reload_, 0, Qt::AlignHCenter);
    rows->addStretch();

    auto* const middle = new QHBoxLayout(this);
    middle->setContentsMargins(line, line, line, line);
    middle->addWidget(column);
}

void FailurePanel::setFailure(const QString& reason, const QString& detail)
{
    reason_->setText(reason);
    detail_->setText(detail);
    detail_->setVisible(!detail.isEmpty());
    setAccessibleName(reason);
}

void FailurePanel::focusReload()
{
    reload_->setFocus(Qt::OtherFocusReason);
}

WebServicePage::WebServicePage(const QString& baseUrl,
                               std::function<void(const QUrl&)> openInBrowser,
                               std::chrono::milliseconds loadTimeout)
    : baseUrl_(baseUrl, QUrl::StrictMode),
      openInBrowser_(std::move(openInBrowser)),
      profile_(makeProfile()),
      widget_(new QStackedWidget)
{
    qRegisterMetaType<PageSignal>();
    loadTimer_.setSingleShot(true);
    loadTimer_.setInterval(loadTimeout);
    connect(&loadTimer_, &QTimer::timeout, this, [this] {
        showFailure(QStringLiteral("The service does not respond."), {});
        view_->stop();
    });
    makeView();
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
        return; // the window has been destroyed
    url_ = url;
    page_->setLeaving(true);
    const bool hadFocus = widget_->isAncestorOf(QApplication::focusWidget());
    widget_->setCurrentWidget(view_);
    if (hadFocus)
        view_->setFocus();
    loadTimer_.start();
    view_->load(url);
}

void WebServicePage::makeView()
{
    view_ = new QWebEngineView;
    page_ = new RestrictedPage(profile_.get(), baseUrl_, openInBrowser_, view_);
    page_->setBackgroundColor(widget_->palette().color(QPalette::Base)); // no white flash when dark
    view_->setPage(page_);
    view_->setAccessibleName(QStringLiteral("Upload page"));
    view_->setContextMenuPolicy(Qt::PreventContextMenu);
    view_->setAcceptDrops(false); // the window handles drops
    panel_ = new FailurePanel(widget_);
    widget_->addWidget(view_);
    widget_->addWidget(panel_);
    connect(view_, &QObject::destroyed, &loadTimer_, &QTimer::stop);
    connect(panel_, &FailurePanel::reloadRequested, this, [this] { load(url_); });
}

void WebServicePage::connectPage()
{
    connect(page_, &QWebEnginePage::loadingChanged, this, &WebServicePage::loadingChanged);
    connect(page_, &QWebEnginePage::loadProgress, this, [this] {
        if (loadTimer_.isActive())
            loadTimer_.start();
    });
    connect(page_, &QWebEnginePage::renderProcessTerminated, this,
            [this](QWebEnginePage::RenderProcessTerminationStatus /*status*/, int exitCode) {
                showFailure(QStringLiteral("The page stopped unexpectedly. The queued files are "
                                           "kept."),
                            QStringLiteral("Exit code %1").arg(exitCode));
            });
}

void WebServicePage::watchTitles()
{
    QFile file(QStringLiteral(":/ui/title_watcher.js"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The resource title_watcher.js is missing in this build.");
    QString source = QString::fromUtf8(file.readAll());
    source.replace(QStringLiteral("__SERVICE_ORIGIN__"), originOf(baseUrl_));

    QWebEngineScript script;
    script.setName(QStringLiteral("title watcher"));
    script.setSourceCode(source);
    script.setWorldId(kWatcherWorld);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setRunsOnSubFrames(false);
    page_->scripts().insert(script);

    auto* const channel = new QWebChannel(page_);
    auto* const receiver = new TitleReceiver(page_);
    channel->registerObject(QStringLiteral("titles"), receiver);
    page_->setWebChannel(channel, kWatcherWorld);
    // Queued, because a slot may open a dialog or load another page, which is not allowed inside a
    // call from the browser engine.
    connect(receiver, &TitleReceiver::received, this, &WebServicePage::titleReceived,
            Qt::QueuedConnection);
}

void WebServicePage::loadingChanged(const QWebEngineLoadingInfo& info)
{
    using Info = QWebEngineLoadingInfo;
    if (!view_)
        return; // the window has been destroyed during a load
    if (info.status() == Info::LoadStartedStatus) {
        page_->setLeaving(false);
        return;
    }
    if (info.status() == Info::LoadSucceededStatus) {
        loadTimer_.stop();
        widget_->setCurrentWidget(view_); // a page may reload itself after a failure
        return;
    }
    const bool isAborted = info.errorCode() == kErrAborted;
    // Ignore a load that a later load replaced, and one that has timed out.
    if (isAborted && (page_->isLoading() || widget_->currentWidget() == panel_))
        return;
    if (isAborted || info.errorDomain() == Info::HttpStatusCodeDomain)
        showFailure(QStringLiteral("The service responded, but not with its upload page."),
                    isAborted ? QString() : QStringLiteral("HTTP status %1").arg(info.errorCode()));
    else
        showFailure(reasonFor(info.errorDomain()), info.errorString());
}

void WebServicePage::showFailure(const QString& reason, const QString& detail)
{
    if (!view_)
        return; // the window has been destroyed, and the page's process with it
    loadTimer_.stop();
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
