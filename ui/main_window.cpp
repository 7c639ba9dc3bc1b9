#include "ui/main_window.h"

#include "ui/appearance.h"
#include "ui/drag_view.h"
#include "ui/notice_line.h"
#include "ui/status_table_view.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
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
      browseButton(named(new QPushButton(u"&Browse…"_s), u"browseButton"_s)),
      noticeLine(named(new NoticeLine, u"noticeLine"_s)),
      webView(named(page, u"webView"_s)),
      dropPanel(named(new DropPanel, u"dropPanel"_s)),
      progressPanel(named(new QFrame, u"progressPanel"_s)),
      progressGrid(named(new StatusTableView, u"progressGrid"_s)),
      fileStatusBarLabel(named(new QLabel(u"File:"_s), u"fileStatusBarLabel"_s)),
      filenameStatusBarLabel(named(new ElidedLabel, u"filenameStatusBarLabel"_s)),
      uploadStatusBarLabel(named(new QLabel, u"uploadStatusBarLabel"_s)),
      statusBarProgressBar(named(new QProgressBar, u"statusBarProgressBar"_s)),
      heading_(new QLabel),
      hint_(new QLabel),
      headerButtonLayout_(new QVBoxLayout)
{
    setWindowTitle(kProductName.toString());
    setCentralWidget(mainView);
    const int line = fontMetrics().height();
    const QSize screenLimit = screen()->availableSize() * kMaxShareOfScreen;
    resize((kWindowInLines * line).boundedTo(screenLimit));
    setMinimumSize((kMinWindowInLines * line).boundedTo(screenLimit));

    auto* const rows = new QVBoxLayout(mainView);
    rows->setContentsMargins(line, line, line, line / 2);
    rows->setSpacing(line);
    rows->addLayout(makeHeader());
    makeProgressPanel();
    rows->addWidget(noticeLine);
    rows->addWidget(webView, 1);
    rows->addWidget(dropPanel, 1);
    rows->addWidget(progressPanel, 1);
    webView->setAccessibleName(u"Upload page"_s);
    dropPanel->setAccessibleName(u"Drop files here"_s);
    makeStatusBar();
    makeShortcuts();
    connect(mainView, &DragView::dragActiveChanged, dropPanel, &DropPanel::setHighlighted);

    setQuestionShown(false);
    setPanelsShown(false, false);
    setStatusBarShown(false);
}

QHBoxLayout* MainWindow::makeHeader()
{
    infoLabel->setText(u"To upload this file, complete the page below."_s);
    infoLabel->setForegroundRole(QPalette::PlaceholderText);
    filenameLabel->setFont(scaledFont(font(), kHeadingScale));
    heading_->setFont(scaledFont(font(), kHeadingScale));
    hint_->setText(u"Drop more files anywhere in this window."_s);
    hint_->setForegroundRole(QPalette::PlaceholderText);
    queueLabel->setForegroundRole(QPalette::PlaceholderText);
    browseButton->setAccessibleName(u"Browse"_s);
    browseButton->setToolTip(u"Choose files to upload (Ctrl+O)"_s);

    auto* const names = new QHBoxLayout;
    names->setSpacing(fontMetrics().height() / 2);
    names->addWidget(heading_);
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
    header->addLayout(headerButtonLayout_);
    return header;
}

void MainWindow::makeProgressPanel()
{
    auto* const rows = new QVBoxLayout(progressPanel);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(progressGrid);
}

void MainWindow::makeStatusBar()
{
    fileStatusBarLabel->setForegroundRole(QPalette::PlaceholderText);
    filenameStatusBarLabel->setElidedText(u"[none]"_s);
    uploadStatusBarLabel->setText(u"Upload rate: 0.000 MB/s"_s);
    // With a fixed size, a new rate does not start a new layout of the window.
    uploadStatusBarLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    uploadStatusBarLabel->setFixedSize(QLabel(u"Upload rate: 0000.000 MB/s"_s).sizeHint());
    statusBarProgressBar->setAccessibleName(u"Progress of the file under upload"_s);
    statusBarProgressBar->setRange(0, 100);
    statusBarProgressBar->setValue(0);
    statusBarProgressBar->setTextVisible(false);
    const QFontMetrics metrics = fontMetrics();
    statusBarProgressBar->setFixedSize(metrics.averageCharWidth() * kProgressBarWidthInCharacters,
                                       metrics.height() * 3 / 4);

    const int line = metrics.height();
    statusBar()->setSizeGripEnabled(false);
    statusBar()->setContentsMargins(line, 0, line, line / 3);
    statusBar()->setMinimumHeight(line * 2);
    statusBar()->addWidget(fileStatusBarLabel);
    statusBar()->addWidget(filenameStatusBarLabel, 1);
    statusBar()->addPermanentWidget(uploadStatusBarLabel);
    statusBar()->addPermanentWidget(statusBarProgressBar);
}

void MainWindow::makeShortcuts()
{
    const auto addShortcut = [this](const QString& text, const QKeySequence& key, auto receiver) {
        auto* const action = new QAction(text, this);
        action->setShortcut(key);
        connect(action, &QAction::triggered, this, receiver);
        addAction(action);
    };
    addShortcut(u"Browse…"_s, QKeySequence(Qt::CTRL | Qt::Key_O), &MainWindow::browseRequested);
    addShortcut(u"Quit"_s, QKeySequence(Qt::CTRL | Qt::Key_Q), &MainWindow::quitRequested);
    addShortcut(u"Switch Focus"_s, QKeySequence(Qt::Key_F6), &MainWindow::switchFocus);
    connect(browseButton, &QPushButton::clicked, this, &MainWindow::browseRequested);
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

void MainWindow::setQuestionShown(bool shown)
{
    infoLabel->setVisible(shown);
    filenameLabel->setVisible(shown);
    if (!shown)
        queueLabel->hide();
    updateHeader();
}

void MainWindow::setPanelsShown(bool drop, bool progress)
{
    dropPanel->setVisible(drop);
    progressPanel->setVisible(progress);
    updateHeader();
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
    webView->setVisible(shown);
}

void MainWindow::updateHeader()
{
    heading_->setText(progressPanel->isHidden() ? kProductName.toString() : u"Uploads"_s);
    hint_->setVisible(!progressPanel->isHidden());
    heading_->setVisible(filenameLabel->isHidden() && dropPanel->isHidden());

    const bool focused = browseButton->hasFocus();
    QVBoxLayout* const layout =
        dropPanel->isHidden() ? headerButtonLayout_ : dropPanel->buttonLayout();
    if (layout->indexOf(browseButton) < 0) {
        layout->addWidget(browseButton);
        browseButton->show();
        if (focused)
            browseButton->setFocus();
    }
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
