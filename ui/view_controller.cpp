#include "ui/view_controller.h"

#include "base/log.h"
#include "engine/upload_engine.h"
#include "ui/app_delegate.h"
#include "ui/appearance.h"
#include "ui/desktop.h"
#include "ui/drag_view.h"
#include "ui/indicators.h"
#include "ui/notice_line.h"

#include <QGuiApplication>
#include <QPushButton>
#include <QStyleHints>
#include <QTableView>
#include <QUrl>
#include <utility>

namespace quenmoor {
namespace {

// How long the window may stop reacting while files are added.
constexpr std::chrono::milliseconds kIntakeSlice{100};

constexpr std::chrono::seconds kStartRetry{15};

// How often the page for one file may be loaded anew because it has set another session.
constexpr double kMaxSessions = 20;
constexpr double kSessionsPerSecond = 0.1;

// "2 folders were skipped, 1 file cannot be read.", or nothing if no file was skipped.
QString skippedText(const Intake& intake)
{
    QStringList parts;
    const auto add = [&parts](std::size_t count, const char* one, const char* many) {
        if (count > 0)
            parts << QString::number(count) + QString::fromLatin1(count == 1 ? one : many);
    };
    add(intake.folders, " folder was skipped", " folders were skipped");
    add(intake.missing, " file was not found", " files were not found");
    add(intake.unreadable, " file cannot be read", " files cannot be read");
    return parts.isEmpty() ? QString() : parts.join(QStringLiteral(", ")) + u'.';
}

} // namespace

ViewController::ViewController(const Dependencies& dependencies, Client client)
    : deps_(dependencies),
      client_(std::move(client)),
      tableModel_(deps_.queues),
      window_(deps_.page.widget())
{
}

void ViewController::viewDidLoad()
{
    window_.setWindowTitle(window_.windowTitle() + QStringLiteral(" - v") + client_.versionText);
    connectParts();
    addFiles(deps_.delegate.takeDroppedFiles());
    window_.setUploads(tableModel_);
    loadPage(QUrl(client_.baseUrl));
    logSystem("Byte length of long: {}", sizeof(long));
}

void ViewController::connectParts()
{
    intakeTimer_.setSingleShot(true);
    connect(&intakeTimer_, &QTimer::timeout, this, &ViewController::takeIncoming);
    startTimer_.setObjectName(QStringLiteral("startTimer"));
    startTimer_.setSingleShot(true);
    startTimer_.setInterval(kStartRetry);
    connect(&startTimer_, &QTimer::timeout, this, &ViewController::startUpload);
    window_.windowShouldClose = [this] { return windowShouldClose(); };
    connect(&window_, &MainWindow::browseRequested, this, &ViewController::browseButtonClick);
    connect(window_.mainView, &DragView::filesDropped, this, &ViewController::addFiles);
    connect(&deps_.delegate, &AppDelegate::filesOpened, this, [this] {
        if (sessionSeen_)
            addFiles(deps_.delegate.takeDroppedFiles());
    });
    connect(&deps_.page, &ServicePage::titleReceived, this,
            &ViewController::webViewDidReceiveTitle);
    connect(&window_, &MainWindow::skipRequested, this, &ViewController::skipFile);
    connect(&deps_.view, &QtUploadView::progressGridChanged, this,
            &ViewController::reloadProgressGrid);
    connect(&deps_.view, &QtUploadView::attemptReported, &tableModel_,
            &StatusTableModel::attemptChanged);
    connect(&deps_.view, &QtUploadView::statusBarChanged, this,
            [this](const QString& filename, const QString& rate) {
                window_.filenameStatusBarLabel->setElidedText(
                    printableQString(filename.toStdString()));
                window_.uploadStatusBarLabel->setText(rate);
            });
    connect(&deps_.view, &QtUploadView::alertRaised, this,
            [this](const Alert& alert, const QtUploadView::AnswerCallback& answer) {
                // The engine's text does not contain the file name.
                const auto head = deps_.queues.uploadHead();
                deps_.desktop.openModal(
                    &window_, printableQString(head ? head->file.filename() : ""), alert, answer);
            });
}

void ViewController::addFiles(const std::vector<FileUrl>& files)
{
    const bool isTaking = !incoming_.empty();
    incoming_.insert(incoming_.end(), files.begin(), files.end());
    if (isTaking)
        return;
    if (!files.empty()) // the page can signal a session without new files at any time
        window_.noticeLine->showNotice({});
    intake_ = {};
    takeIncoming();
}

void ViewController::takeIncoming()
{
    const auto until = std::chrono::steady_clock::now() + kIntakeSlice;
    intake_ += deps_.queues.addFiles(std::span(incoming_).subspan(intake_.taken), until);
    if (intake_.taken < incoming_.size()) {
        intakeTimer_.start();
    } else {
        incoming_.clear();
        if (const QString text = skippedText(intake_); !text.isEmpty())
            window_.noticeLine->showNotice(text);
    }
    updateView();
}

void ViewController::updateView()
{
    logSystem("Update view called.");
    if (starting_)
        return;
    if (deps_.queues.fileQueue().empty())
        showIdle();
    else
        showHeadFile();
}

void ViewController::showHeadFile()
{
    const std::deque<InfoContainer>& fileQueue = deps_.queues.fileQueue();
    const InfoContainer& head = fileQueue.front();
    window_.setPanelsShown(false, false);
    window_.setPageShown(true);
    window_.mainView->unregisterDraggedTypes();
    window_.filenameLabel->setElidedText(printableQString(head.file.filename()),
                                         printableQString(head.file.path().native()));
    window_.setQuestionShown(true);
    window_.webView->setFocus(Qt::OtherFocusReason);
    window_.queueLabel->setText(QStringLiteral("(%1 more in Queue)").arg(fileQueue.size() - 1));
    window_.queueLabel->setVisible(fileQueue.size() > 1);
    const QUrl url = pageUrl(client_.baseUrl, session_, head.file.filename(), head.size);
    if (!awaitsAnswer_)
        sessionLimit_ = EventLimit(kMaxSessions, kSessionsPerSecond);
    if (awaitsAnswer_ && url != url_ && !sessionLimit_.take()) {
        deps_.page.endOverload(QStringLiteral("Too many sessions."));
    } else if (!awaitsAnswer_ || url != url_ || deps_.page.hasFailed()) {
        loadPage(url);
        awaitsAnswer_ = true;
    }
}

void ViewController::loadPage(const QUrl& url)
{
    url_ = url;
    load_ = deps_.page.load(url);
}

void ViewController::showIdle()
{
    // Before the page disappears, because Qt would give its focus to a cell of the table.
    if (window_.webView->isAncestorOf(window_.focusWidget()) || window_.webView->hasFocus())
        window_.browseButton->setFocus(Qt::OtherFocusReason);
    const bool hasRows = deps_.queues.tableList().count() > 0;
    window_.setPanelsShown(!hasRows, hasRows || window_.isProgressPanelShown());
    window_.setQuestionShown(false);
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
    pageLog_.write("Page title: " + signal.title.toStdString());
    if (signal.load != load_) {
        pageLog_.write("The title is ignored, because the page has been replaced.");
        return;
    }
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
    logSystem("Session value: {}", session_ ? session_->toStdString() : "(null)");
    sessionSeen_ = true;
    addFiles(deps_.delegate.takeDroppedFiles());
    updateView();
}

bool ViewController::takeAnswer(std::string_view title)
{
    if (std::exchange(awaitsAnswer_, false))
        return true;
    pageLog_.write(fmt::format("The title \"{}\" is ignored, because this page has answered or was "
                               "not loaded for a file.",
                               title));
    return false;
}

void ViewController::tokenReceived(const PageSignal& signal)
{
    if (!takeAnswer("token"))
        return;
    session_ = signal.session;
    const FileUrl file = deps_.queues.fileQueue().front().file;
    const std::int64_t size = deps_.queues.fileQueue().front().size;
    std::optional<std::string> token;
    if (signal.token)
        token = signal.token->toStdString();
    if (deps_.queues.acceptToken(std::move(token))) {
        tableModel_.appendRow(file);
        Q_EMIT fileAccepted(size);
    }
    startUpload();
    updateView();
}

void ViewController::startUpload()
{
    if (deps_.engine.initiateUpload())
        return;
    window_.noticeLine->showNotice(
        QStringLiteral("The upload cannot start, because the system refuses to create a thread. "
                       "The next attempt follows in %1 seconds.")
            .arg(kStartRetry.count()));
    startTimer_.start();
}

void ViewController::cancelReceived(const PageSignal& signal)
{
    if (!takeAnswer("cancel"))
        return;
    session_ = signal.session;
    deps_.queues.cancelHead();
    updateView();
}

void ViewController::skipFile()
{
    // The second click of a double click would skip the next file.
    const bool isRepeated =
        sinceSkip_.isValid() &&
        sinceSkip_.elapsed() < QGuiApplication::styleHints()->mouseDoubleClickInterval();
    sinceSkip_.start();
    if (isRepeated || !std::exchange(awaitsAnswer_, false))
        return;
    logSystem("The user skipped a file.");
    deps_.queues.cancelHead();
    updateView();
}

void ViewController::indexReceived(const PageSignal& signal)
{
    starting_ = false;
    if (isOutOfDate(client_.version, pageVersion(signal)))
        stopOutdatedClient(signal);
    // The user may refuse to quit while uploads are not finished. The client then continues as if
    // it were current.
    window_.setPageShown(true);
    window_.setStatusBarShown(true);
    window_.setPanelsShown(false, false);
}

void ViewController::stopOutdatedClient(const PageSignal& signal)
{
    const Alert alert{"This version of utility client is out of date.\nWhen you click 'OK' a "
                      "download page will open in your default browser and this application will "
                      "exit.",
                      {},
                      {}};
    if (!deps_.desktop.runModal(&window_, alert))
        return; // the program is already ending
    if (const std::optional<QUrl> url = downloadUrl(signal))
        deps_.desktop.openUrl(*url);
    Q_EMIT terminationRequested();
}

bool ViewController::windowShouldClose()
{
    if (incoming_.empty() && deps_.queues.fileQueue().empty() && deps_.queues.uploadCount() == 0)
        return true;
    // A second request, for example at the end of the desktop session, opens no second alert.
    if (closeQuestionOpen_)
        return false;
    closeQuestionOpen_ = true;
    const Alert alert{"Not all uploads are finished.  Quit?", {}, {"No", "Yes"}};
    const std::optional<std::int32_t> answer = deps_.desktop.runModal(&window_, alert);
    closeQuestionOpen_ = false;
    return answer == kSecondButton;
}

void ViewController::browseButtonClick()
{
    deps_.desktop.chooseFiles(&window_,
                              [this](const std::vector<FileUrl>& files) { addFiles(files); });
}

void ViewController::reloadProgressGrid(std::optional<std::int32_t> percent)
{
    tableModel_.refreshCurrentRow();
    if (percent)
        window_.statusBarProgressBar->setValue(*percent);
}

} // namespace quenmoor
