#include "ui/app_delegate.h"

#include "base/log.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QFileOpenEvent>
#include <QSessionManager>
#include <algorithm>
#include <cstdlib>

namespace quenmoor {
namespace {

std::ptrdiff_t windowCount()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    return std::count_if(widgets.begin(), widgets.end(), [](const QWidget* widget) {
        return widget->windowType() == Qt::Window || widget->windowType() == Qt::Dialog;
    });
}

bool isOnScreen(const QWidget* window)
{
    return window != nullptr && window->isVisible() && !window->isMinimized();
}

} // namespace

AppDelegate::AppDelegate()
{
    QGuiApplication::setQuitOnLastWindowClosed(false);
    qApp->installEventFilter(this);
    connect(qApp, &QGuiApplication::commitDataRequest, this, &AppDelegate::sessionEnds,
            Qt::DirectConnection);
    requestComplete_.setSingleShot(true);
    connect(&requestComplete_, &QTimer::timeout, this,
            [this] { applicationOpenFiles(std::exchange(incoming_, {})); });
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::setWindow(MainWindow* window)
{
    window_ = window;
}

void AppDelegate::applicationOpenFiles(std::vector<FileUrl> urls)
{
    droppedFiles_ = std::move(urls);
    Q_EMIT filesOpened();
}

bool AppDelegate::applicationShouldTerminate()
{
    logSystem("Window count: {}", windowCount());
    if (!isOnScreen(window_))
        return true;
    window_->close();
    return !isOnScreen(window_);
}

void AppDelegate::terminate()
{
    if (!terminating_ && applicationShouldTerminate())
        terminateAtOnce(EXIT_SUCCESS);
}

void AppDelegate::terminateAtOnce(int status)
{
    if (terminating_)
        return;
    terminating_ = true;
    Q_EMIT willTerminate();
    if (window_ != nullptr)
        window_->hide();
    QCoreApplication::exit(status);
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != qApp)
        return false;
    switch (event->type()) {
    case QEvent::FileOpen: fileOpened(static_cast<QFileOpenEvent*>(event)->url()); return true;
    case QEvent::Quit:
        if (sessionEnding_)
            terminateAtOnce(EXIT_SUCCESS);
        else
            terminate();
        return true;
    default: return false;
    }
}

// The platform sends one event for each file of a request, all in one turn of the event loop.
void AppDelegate::fileOpened(const QUrl& url)
{
    const std::optional<FileUrl> file = FileUrl::parse(url.toEncoded().toStdString());
    if (!file)
        return;
    incoming_.push_back(*file);
    requestComplete_.start();
}

void AppDelegate::sessionEnds(QSessionManager& manager)
{
    const bool mayAsk = manager.allowsInteraction();
    sessionEnding_ = !mayAsk || sessionMayEnd();
    if (!sessionEnding_)
        manager.cancel();
    if (mayAsk)
        manager.release();
}

bool AppDelegate::sessionMayEnd()
{
    return !isOnScreen(window_) || !window_->windowShouldClose || window_->windowShouldClose();
}

} // namespace quenmoor
