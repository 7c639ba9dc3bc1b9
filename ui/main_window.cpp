#include "ui/main_window.h"

#include "ui/appearance.h"
#include "ui/drag_view.h"
#include "ui/indicators.h"
#include "ui/notice_line.h"
#include "ui/row_details.h"
#include "ui/shortcuts_window.h"
#include "ui/status_table_model.h"
#include "ui/status_table_view.h"
#include "ui/upload_line.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

// In line heights, so that the window grows with the user's font. With a common font the sizes are
// about 900 by 640 and 560 by 400 pixels.
constexpr QSize kWindowInLines(53, 38);
constexpr QSize kMinWindowInLines(33, 24);
constexpr double kMaxShareOfScreen = 0.9;
constexpr int kProgressBarWidthInCharacters = 18;

// Returns a frame around `content`.
QFrame* framed(QWidget* content, bool showsFocus)
{
    auto* const frame = new OutlinedFrame(showsFocus ? content : nullptr);
    auto* const rows = new QVBoxLayout(frame);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(content);
    return frame;
}

template <typename Widget>
Widget* named(Widget* widget, const QString& name)
{
    widget->setObjectName(name);
    return widget;
}

} // namespace

MainWindow::MainWindow(QWidget* page)
    : mainView(named(new DragView, u"mainView"_s)),
      infoLabel(named(new QLabel, u"infoLabel"_s)),
      filenameLabel(named(new ElidedLabel, u"filenameLabel"_s)),
      queueLabel(named(new QLabel, u"queueLabel"_s)),
      skipButton(named(new QPushButton(u"&Skip"_s), u"skipButton"_s)),
      browseButton(named(new QPushButton(u"&Browse…"_s), u"browseButton"_s)),
      noticeLine(named(new NoticeLine, u"noticeLine"_s)),
      webView(named(page, u"webView"_s)),
      dropPanel(named(new DropPanel, u"dropPanel"_s)),
      progressGrid(named(new StatusTableView, u"progressGrid"_s)),
      fileStatusBarLabel(named(new QLabel(u"File:"_s), u"fileStatusBarLabel"_s)),
      filenameStatusBarLabel(named(new ElidedLabel, u"filenameStatusBarLabel"_s)),
      uploadStatusBarLabel(named(new QLabel, u"uploadStatusBarLabel"_s)),
      statusBarProgressBar(named(new FlatProgressBar, u"statusBarProgressBar"_s)),
      heading_(new QLabel),
      summary_(named(new QLabel, u"summaryLabel"_s)),
      hint_(named(new QLabel, u"hintLabel"_s)),
      pageFrame_(framed(webView, false)),
      uploadLine_(named(new UploadLine, u"uploadLine"_s))
{
    progressPanel = named(framed(progressGrid, true), u"progressPanel"_s);
    setWindowTitle(kProductName.toString());
    setCentralWidget(mainView);

    auto* const rows = new QVBoxLayout(mainView);
    makeHeader(*rows);
    rows->addWidget(noticeLine);
    rows->addWidget(pageFrame_, 1);
    rows->addWidget(dropPanel, 1);
    rows->addWidget(progressPanel, 1);
    rows->addWidget(uploadLine_);
    webView->setAccessibleName(u"Upload page"_s);
    dropPanel->setAccessibleName(u"Drop files here"_s);
    makeStatusBar();
    makeShortcuts();
    connect(mainView, &DragView::dragActiveChanged, dropPanel, &DropPanel::setHighlighted);
    connect(dropPanel, &DropPanel::clicked, this, &MainWindow::browseRequested);

    setColors();
    setSizes();
    resize((kWindowInLines * fontMetrics().height())
               .boundedTo(screen()->availableSize() * kMaxShareOfScreen));
    setQuestionShown(false);
    setPanelsShown(false, false);
    setStatusBarShown(false);
}

void MainWindow::makeHeader(QVBoxLayout& rows)
{
    infoLabel->setText(u"To upload this file, complete the page below."_s);
    for (QLabel* const label : {infoLabel, hint_, queueLabel, summary_})
        label->setForegroundRole(QPalette::PlaceholderText);
    skipButton->setAccessibleName(u"Skip this file"_s);
    skipButton->setToolTip(u"Remove this file from the queue without uploading it."_s);
    browseButton->setAccessibleName(u"Browse"_s);
    browseButton->setToolTip(u"Choose files to upload (Ctrl+O). F1 lists all keys."_s);

    auto* const names = new QHBoxLayout;
    names->setSpacing(fontMetrics().height() / 2);
    names->addWidget(heading_);
    names->addWidget(summary_);
    names->addWidget(filenameLabel);
    names->addWidget(queueLabel);
    names->addStretch(1);

    auto* const texts = new QVBoxLayout;
    texts->setSpacing(fontMetrics().height() / 4);
    texts->addLayout(names);
    texts->addWidget(infoLabel);
    texts->addWidget(hint_);

    auto* const header = new QHBoxLayout;
    header->setSpacing(fontMetrics().height());
    header->addLayout(texts, 1);
    header->addWidget(skipButton);
    header->addWidget(browseButton);
    rows.addLayout(header);
}

void MainWindow::makeStatusBar()
{
    fileStatusBarLabel->setForegroundRole(QPalette::PlaceholderText);
    filenameStatusBarLabel->setElidedText(u"[none]"_s);
    uploadStatusBarLabel->setText(u"Upload rate: 0.000 MB/s"_s);
    uploadStatusBarLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    statusBarProgressBar->setAccessibleName(u"Progress of the file under upload"_s);
    statusBarProgressBar->setRange(0, 100);
    statusBarProgressBar->setValue(0);
    statusBarProgressBar->setTextVisible(false);

    statusBar()->setSizeGripEnabled(false);
    statusBar()->addWidget(fileStatusBarLabel);
    statusBar()->addWidget(filenameStatusBarLabel, 1);
    statusBar()->addPermanentWidget(uploadStatusBarLabel);
    statusBar()->addPermanentWidget(statusBarProgressBar);
}

void MainWindow::setSizes()
{
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height();
    setMinimumSize(
        (kMinWindowInLines * line).boundedTo(screen()->availableSize() * kMaxShareOfScreen));
    for (QLabel* const label : std::initializer_list<QLabel*>{heading_, filenameLabel})
        label->setFont(scaledFont(font(), kHeadingScale));

    mainView->layout()->setContentsMargins(line, line, line, line / 2);
    mainView->layout()->setSpacing(line * 3 / 4);
    // With a fixed size, a new rate does not start a new layout of the window.
    uploadStatusBarLabel->setFixedSize(QLabel(u"Upload rate: 0000.000 MB/s"_s).sizeHint());
    statusBarProgressBar->setFixedSize(metrics.averageCharWidth() * kProgressBarWidthInCharacters,
                                       line);
    statusBar()->setContentsMargins(line, 0, line, line / 3);
    statusBar()->setMinimumHeight(line * 2);
}

void MainWindow::setColors()
{
    const QPalette colors = windowPalette(QApplication::palette(this));
    for (const auto role : {QPalette::PlaceholderText, QPalette::AlternateBase}) {
        if (palette().color(role) != colors.color(role)) {
            setPalette(colors);
            progressGrid->setPalette(colors); // item views have a palette of their own
            return;
        }
    }
}

void MainWindow::makeShortcuts()
{
    const auto addShortcut = [this](const QString& text, const QList<QKeySequence>& keys,
                                    auto receiver) {
        auto* const action = new QAction(text, this);
        action->setShortcuts(keys);
        connect(action, &QAction::triggered, this, receiver);
        addAction(action);
    };
    addShortcut(u"Browse…"_s, {Qt::CTRL | Qt::Key_O}, &MainWindow::browseRequested);
    addShortcut(u"Switch Focus"_s, {Qt::Key_F6}, &MainWindow::switchFocus);
    addShortcut(u"Close Window"_s, {Qt::CTRL | Qt::Key_W}, &MainWindow::close);
    addShortcut(u"Quit"_s, {Qt::CTRL | Qt::Key_Q}, &MainWindow::quitRequested);
    addShortcut(u"Keyboard Shortcuts"_s, {Qt::Key_F1, Qt::CTRL | Qt::Key_Question},
                [this] { showShortcuts(*this); });
    addRowActions(*progressGrid);
    connect(browseButton, &QPushButton::clicked, this, &MainWindow::browseRequested);
    connect(skipButton, &QPushButton::clicked, this, &MainWindow::skipRequested);
}

void MainWindow::switchFocus()
{
    QWidget* const focus = QApplication::focusWidget();
    const bool inPage = focus != nullptr && (focus == webView || webView->isAncestorOf(focus));
    if (!inPage && webView->isVisible())
        webView->setFocus(Qt::TabFocusReason);
    else if (browseButton->hasFocus() && progressGrid->isVisible())
        progressGrid->setFocus(Qt::TabFocusReason);
    else
        browseButton->setFocus(Qt::TabFocusReason);
}

void MainWindow::setUploads(StatusTableModel& uploads)
{
    uploads_ = &uploads;
    progressGrid->setModel(&uploads);
    uploadLine_->setModel(uploads);
    connect(&uploads, &StatusTableModel::summaryChanged, this, &MainWindow::updateSummary);
    updateSummary();
}

void MainWindow::setQuestionShown(bool shown)
{
    infoLabel->setVisible(shown);
    filenameLabel->setVisible(shown);
    skipButton->setVisible(shown);
    if (!shown)
        queueLabel->hide();
    updateParts();
}

void MainWindow::setPanelsShown(bool drop, bool progress)
{
    dropPanel->setVisible(drop);
    progressPanel->setVisible(progress);
    updateParts();
}

bool MainWindow::isProgressPanelShown() const
{
    return !progressPanel->isHidden();
}

void MainWindow::setStatusBarShown(bool shown)
{
    fileStatusBarLabel->setVisible(shown);
    filenameStatusBarLabel->setVisible(shown);
    uploadStatusBarLabel->setVisible(shown);
    statusBarProgressBar->setVisible(shown);
}

void MainWindow::setPageShown(bool shown)
{
    pageWanted_ = shown;
    updateParts();
}

void MainWindow::updateParts()
{
    const bool isTable = !progressPanel->isHidden();
    const bool isPage = pageWanted_ || (dropPanel->isHidden() && !isTable);
    webView->setVisible(isPage);
    pageFrame_->setVisible(isPage);

    heading_->setText(isTable ? u"Uploads"_s : kProductName.toString());
    heading_->setVisible(filenameLabel->isHidden());
    hint_->setVisible(infoLabel->isHidden());
    hint_->setText(isTable                  ? u"Drop more files anywhere in this window."_s
                   : !dropPanel->isHidden() ? u"Add files to upload them."_s
                                            : QString());
    updateSummary();
}

void MainWindow::updateSummary()
{
    const QString text = uploads_ != nullptr ? uploads_->summary() : QString();
    const bool isTable = !progressPanel->isHidden();
    summary_->setText(text);
    summary_->setVisible(isTable && !text.isEmpty());
    uploadLine_->setVisible(!isTable && !text.isEmpty());
    const int row = uploads_ != nullptr ? uploads_->latestRow() : -1;
    const bool isUnderWay = row >= 0 && uploads_->state(row) == UploadState::UnderWay;
    statusBarProgressBar->setActive(isUnderWay);
    const auto role = isUnderWay ? QPalette::WindowText : QPalette::PlaceholderText;
    for (QLabel* const label :
         std::initializer_list<QLabel*>{filenameStatusBarLabel, uploadStatusBarLabel})
        label->setForegroundRole(role);
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        setColors();
    else if (event->type() == QEvent::FontChange)
        setSizes();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (windowShouldClose && !windowShouldClose()) {
        event->ignore();
        return;
    }
    event->accept();
    Q_EMIT windowClosed();
}

} // namespace quenmoor
