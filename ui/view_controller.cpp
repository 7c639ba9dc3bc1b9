#include "ui/view_controller.h"

#include "base/log.h"
#include "engine/upload_engine.h"
#include "ui/app_delegate.h"
#include "ui/desktop.h"
#include "ui/drag_view.h"
#include "ui/elided_label.h"
#include "ui/page/page_url.h"
#include "ui/shown_text.h"
#include "ui/steady_label.h"

#include <QLabel>
#include <QProgressBar>
#include <QUrl>

namespace quenmoor {
namespace {

// An absent value as the service's page knows it from its query.
std::string printed(const std::optional<QString>& value)
{
    return value ? value->toStdString() : "(null)";
}

} // namespace

ViewController::ViewController(const Surroundings& surroundings, Client client)
    : with_(surroundings),
      client_(std::move(client)),
      tableModel_(with_.queues),
      window_(with_.page.widget())
{
}

void ViewController::viewDidLoad()
{
    window_.setWindowTitle(window_.windowTitle() + QStringLiteral(" - v") + client_.versionText);
    connectParts();
    addFiles(with_.delegate.droppedFiles());
    window_.setGridModel(&tableModel_);
    with_.page.load(QUrl(client_.baseUrl));
    logSystem("Byte length of long: {}", sizeof(long));
}

void ViewController::connectParts()
{
    window_.windowShouldClose = [this] { return windowShouldClose(); };
    connect(&window_, &MainWindow::browseRequested, this, &ViewController::browseButtonClick);
    connect(window_.mainView, &DragView::filesDropped, this, &ViewController::addFiles);
    connect(&with_.page, &ServicePage::titleReceived, this,
            &ViewController::webViewDidReceiveTitle);
    connect(&with_.view, &QtUploadView::progressGridChanged, this,
            &ViewController::reloadProgressGrid);
    connect(&with_.view, &QtUploadView::statusBarChanged, this,
            [this](const QString& filename, const QString& rate) {
                window_.filenameStatusBarLabel->setElidedText(shownText(filename.toStdString()));
                window_.uploadStatusBarLabel->setSteadyText(rate);
            });
    connect(&with_.view, &QtUploadView::alertRaised, this,
            [this](const Alert& alert, const QtUploadView::Answer& answer) {
                // The text does not name the file, and the table may be out of sight.
                const auto head = with_.queues.uploadHead();
                with_.desktop.openModal(&window_, shownText(head ? head->file.filename() : ""),
                                        alert, answer);
            });
}

void ViewController::addFiles(const std::vector<FileUrl>& files)
{
    with_.queues.addFiles(files);
    updateView();
}

void ViewController::updateView()
{
    logSystem("Update view called.");
    if (starting_)
        return;
    if (with_.queues.fileQueue().empty())
        showIdle();
    else
        showHeadFile();
}

void ViewController::showHeadFile()
{
    const std::deque<InfoContainer>& fileQueue = with_.queues.fileQueue();
    const InfoContainer& head = fileQueue.front();
    window_.setPanelsShown(false, false);
    window_.setPageShown(true);
    // While the page asks about a file, no other may come in by a drop.
    window_.mainView->unregisterDraggedTypes();
    window_.filenameLabel->setElidedText(shownText(head.file.filename()),
                                         shownText(head.file.path().native()));
    window_.setAskingShown(true);
    window_.queueLabel->setText(QStringLiteral("(%1 more in Queue)").arg(fileQueue.size() - 1));
    window_.queueLabel->setVisible(fileQueue.size() > 1);
    with_.page.load(pageUrl(client_.baseUrl, session_, head.file.filename(), head.size));
}

void ViewController::showIdle()
{
    const bool hasRows = with_.queues.tableList().count() > 0;
    window_.setPanelsShown(!hasRows, hasRows || window_.isProgressPanelShown());
    window_.setAskingShown(false);
    window_.setPageShown(false);
    window_.mainView->registerForDraggedTypes();
}

void ViewController::webViewDidReceiveTitle(const PageSignal& signal)
{
    titles_.push_back(signal);
    if (handlingTitle_)
        return;
    handlingTitle_ = true;
    while (!titles_.empty()) {
        const PageSignal next = std::move(titles_.front());
        titles_.pop_front();
        handleTitle(next);
    }
    handlingTitle_ = false;
}

void ViewController::handleTitle(const PageSignal& signal)
{
    logSystem("Page title: {}", signal.title.toStdString());
    if (signal.title == u"session")
        sessionReceived(signal);
    else if (signal.title == u"token")
        tokenReceived(signal);
    else if (signal.title == u"index")
        indexReceived(signal);
    else if (signal.title == u"upload")
        window_.setPanelsShown(false, false);
    else if (signal.title == u"cancel")
        cancelReceived(signal);
}

void ViewController::sessionReceived(const PageSignal& signal)
{
    session_ = signal.session;
    logSystem("Session value: {}", printed(session_));
    addFiles(with_.delegate.droppedFiles());
    updateView();
}

void ViewController::tokenReceived(const PageSignal& signal)
{
    session_ = signal.session;
    if (with_.queues.fileQueue().empty()) {
        logSystem("The page gave a token, but no file waits for one.");
        return;
    }
    const FileUrl file = with_.queues.fileQueue().front().file;
    std::optional<std::string> token;
    if (signal.token)
        token = signal.token->toStdString();
    if (with_.queues.acceptToken(std::move(token)))
        tableModel_.appendRow(file);
    with_.engine.initiateUpload();
    updateView();
}

void ViewController::cancelReceived(const PageSignal& signal)
{
    session_ = signal.session;
    if (!with_.queues.cancelHead()) {
        logSystem("The page cancelled a file, but no file waits.");
        return;
    }
    updateView();
}

void ViewController::indexReceived(const PageSignal& signal)
{
    starting_ = false;
    if (isOutOfDate(client_.version, pageVersion(signal)))
        tellOutOfDate(signal);
    // A user whose uploads are not finished may refuse to quit; the client then goes on as if it
    // were current.
    window_.setPageShown(true);
    window_.setStatusBarShown(true);
    window_.setPanelsShown(false, false);
}

void ViewController::tellOutOfDate(const PageSignal& signal)
{
    const Alert alert{"This version of utility client is out of date.\nWhen you click 'OK' a "
                      "download page will open in your default browser and this application will "
                      "exit.",
                      {},
                      {}};
    if (!with_.desktop.runModal(&window_, alert))
        return; // the program is ending already
    if (const std::optional<QUrl> url = downloadUrl(signal))
        with_.desktop.openUrl(*url);
    Q_EMIT terminationRequested();
}

bool ViewController::windowShouldClose()
{
    if (with_.queues.fileQueue().empty() && with_.queues.uploadCount() == 0)
        return true;
    // A second request, as from the end of the desktop session, does not stack a second question.
    if (closeQuestionOpen_)
        return false;
    closeQuestionOpen_ = true;
    const Alert alert{"Not all uploads are finished.  Quit?", {}, {"No", "Yes"}};
    const std::optional<std::int32_t> answer = with_.desktop.runModal(&window_, alert);
    closeQuestionOpen_ = false;
    return answer == kSecondButton;
}

void ViewController::browseButtonClick()
{
    with_.desktop.chooseFiles(&window_,
                              [this](const std::vector<FileUrl>& files) { addFiles(files); });
}

void ViewController::reloadProgressGrid(std::optional<std::int32_t> percent)
{
    tableModel_.refreshCurrentRow();
    if (percent)
        window_.statusBarProgressBar->setValue(*percent);
}

} // namespace quenmoor
