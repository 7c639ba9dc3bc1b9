#include "ui/desktop_integration.h"

#include "ui/appearance.h"
#include "ui/view_controller.h"

#include <QApplication>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

QString countOf(qsizetype count, const QString& one, const QString& several)
{
    return count == 1 ? one : several.arg(count);
}

} // namespace

DesktopIntegration::DesktopIntegration(const Dependencies& dependencies) : deps_(dependencies)
{
    connect(&deps_.controller, &ViewController::fileAccepted, this,
            &DesktopIntegration::fileAccepted);
    connect(&deps_.view, &QtUploadView::attemptReported, this,
            &DesktopIntegration::attemptReported);
    connect(&deps_.view, &QtUploadView::alertRaised, this, &DesktopIntegration::alertRaised);
    connect(qApp, &QGuiApplication::applicationStateChanged, this,
            &DesktopIntegration::applicationStateChanged);
    MainWindow& window = deps_.controller.window();
    connect(&notifier_, &Notifier::clicked, &window, [&window](const QString& token) {
        bringToFront(window, {token, {}});
    });
    connect(&deps_.service, &ApplicationService::openRequested, &deps_.controller,
            [this, &window](const std::vector<FileUrl>& files, const ActivationToken& token) {
                if (!files.empty())
                    deps_.controller.addFiles(files);
                bringToFront(window, token);
            });
}

void DesktopIntegration::fileAccepted(qint64 size)
{
    inhibitor_.setInhibited(true);
    sizes_.push_back(size);
    batch_.total += size;
}

void DesktopIntegration::attemptReported(const AttemptEvent& event)
{
    switch (event.kind) {
    case AttemptEventKind::Progress:
        launcher_.setProgress(percentSent(batch_.ended + event.bytes, batch_.total));
        break;
    case AttemptEventKind::Finished:
        ++batch_.finished;
        fileEnded(event);
        break;
    case AttemptEventKind::Cancelled:
        ++batch_.cancelled;
        fileEnded(event);
        break;
    case AttemptEventKind::GaveUp: // the engine sends no other file
        inhibitor_.setInhibited(false);
        launcher_.setProgress(std::nullopt);
        notify({Notice::Kind::Failure, u"Upload failed"_s,
                currentName() + u": "_s + printableQString(event.reason)});
        break;
    default: break;
    }
}

void DesktopIntegration::fileEnded(const AttemptEvent& event)
{
    batch_.ended += event.total;
    if (event.row + 1 == sizes_.size())
        queueEnded();
}

void DesktopIntegration::queueEnded()
{
    inhibitor_.setInhibited(false);
    launcher_.setProgress(std::nullopt);
    QStringList body;
    if (batch_.finished + batch_.cancelled == 1)
        body << currentName();
    else if (batch_.cancelled > 0)
        body << countOf(batch_.cancelled, u"1 file was cancelled."_s,
                        u"%1 files were cancelled."_s);
    if (const auto waiting = static_cast<qsizetype>(deps_.queues.fileQueue().size()); waiting > 0)
        body << countOf(waiting, u"1 file waits for your input on the upload page."_s,
                        u"%1 files wait for your input on the upload page."_s);
    notify({Notice::Kind::Done,
            batch_.finished == 0
                ? u"Upload cancelled"_s
                : countOf(batch_.finished, u"Upload finished"_s, u"%1 uploads finished"_s),
            body.join(u'\n')});
    batch_ = {};
}

void DesktopIntegration::alertRaised(const Alert& alert)
{
    // An alert without buttons is the final one, which follows the GaveUp event.
    if (!alert.buttons.empty())
        notify({Notice::Kind::Question, QString::fromStdString(alert.messageText),
                currentName() + u'\n' + QString::fromStdString(alert.informativeText)});
}

void DesktopIntegration::applicationStateChanged(Qt::ApplicationState state)
{
    if (state != Qt::ApplicationActive)
        return;
    notifier_.withdraw();
    launcher_.setUrgent(false);
}

void DesktopIntegration::notify(const Notice& notice)
{
    if (QApplication::activeWindow() != nullptr)
        return;
    notifier_.show(notice);
    launcher_.setUrgent(notice.kind != Notice::Kind::Done);
}

QString DesktopIntegration::currentName() const
{
    const auto head = deps_.queues.uploadHead();
    return head ? printableQString(head->file.filename()) : QString();
}

} // namespace quenmoor
