#include "ui/qt_upload_view.h"

#include <QCoreApplication>
#include <QEvent>

namespace quenmoor {

QtMainThreadBridge::QtMainThreadBridge()
    : MainThreadBridge(
          [this] { QCoreApplication::postEvent(&receiver_, new QEvent(QEvent::User)); })
{
}

bool QtMainThreadBridge::Receiver::event(QEvent* event)
{
    if (event->type() != QEvent::User)
        return QObject::event(event);
    bridge_.runPending();
    return true;
}

// A closed bridge means that the program is ending, so its result is ignored.

void QtUploadView::reloadProgressGrid(std::optional<std::int32_t> percent)
{
    static_cast<void>(
        bridge_.runOnMainAndWait([this, percent] { Q_EMIT progressGridChanged(percent); }));
}

void QtUploadView::setStatusBar(const std::string& filename, const std::string& rate)
{
    static_cast<void>(bridge_.runOnMainAndWait([this, &filename, &rate] {
        Q_EMIT statusBarChanged(QString::fromStdString(filename), QString::fromStdString(rate));
    }));
}

std::optional<std::int32_t> QtUploadView::runModal(const Alert& alert)
{
    return bridge_.askOnMainAndWait(
        [this, &alert](const AnswerCallback& answer) { Q_EMIT alertRaised(alert, answer); });
}

void QtUploadView::terminate()
{
    static_cast<void>(bridge_.runOnMainAndWait([this] { Q_EMIT terminationRequested(); }));
}

void QtUploadView::attemptChanged(const AttemptEvent& event)
{
    static_cast<void>(bridge_.runOnMainAndWait([this, &event] { Q_EMIT attemptReported(event); }));
}

} // namespace quenmoor
