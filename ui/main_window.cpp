#include "ui/main_window.h"

#include "ui/drag_view.h"
#include "ui/drop_panel.h"
#include "ui/elided_label.h"
#include "ui/grid_delegates.h"
#include "ui/header_style.h"
#include "ui/look.h"
#include "ui/status_table_model.h"
#include "ui/steady_label.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QTableView>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

// In heights of a line of text, so that a window for large letters is large: at the usual size
// about 900 by 640 pixels, and 560 by 400.
constexpr QSize kWindowInLines(53, 38);
constexpr QSize kSmallestWindowInLines(33, 24);
constexpr double kMostOfScreen = 0.9;
constexpr double kRowHeightInLines = 2.0;
constexpr int kPercentWidthInCharacters = 20;
constexpr int kProgressBarWidthInCharacters = 18;

template <typename Part>
Part* named(Part* part, const QString& name)
{
    part->setObjectName(name);
    return part;
}

} // namespace

MainWindow::MainWindow(QWidget* page)
    : mainView(named(new DragView, u"mainView"_s)),
      infoLabel(named(new QLabel, u"infoLabel"_s)),
      filenameLabel(named(new ElidedLabel, u"filenameLabel"_s)),
      queueLabel(named(new QLabel, u"queueLabel"_s)),
      browseButton(named(new QPushButton(u"&Browse…"_s), u"browseButton"_s)),
      webView(named(page, u"webView"_s)),
      dropPanel(named(new DropPanel, u"dropPanel"_s)),
      progressPanel(named(new QFrame, u"progressPanel"_s)),
      progressGrid(named(new QTableView, u"progressGrid"_s)),
      fileStatusBarLabel(named(new QLabel(u"File:"_s), u"fileStatusBarLabel"_s)),
      filenameStatusBarLabel(named(new ElidedLabel, u"filenameStatusBarLabel"_s)),
      uploadStatusBarLabel(named(new SteadyLabel, u"uploadStatusBarLabel"_s)),
      statusBarProgressBar(named(new QProgressBar, u"statusBarProgressBar"_s)),
      heading_(new QLabel),
      hint_(new QLabel),
      headerButtonPlace_(new QVBoxLayout)
{
    setWindowTitle(kProductName.toString());
    setCentralWidget(mainView);
    const int line = fontMetrics().height();
    const QSize screenRoom = screen()->availableSize() * kMostOfScreen;
    resize((kWindowInLines * line).boundedTo(screenRoom));
    setMinimumSize((kSmallestWindowInLines * line).boundedTo(screenRoom));

    auto* const rows = new QVBoxLayout(mainView);
    rows->setContentsMargins(line, line, line, line / 2);
    rows->setSpacing(line);
    rows->addLayout(makeHeader());
    makeProgressPanel();
    rows->addWidget(webView, 1);
    rows->addWidget(dropPanel, 1);
    rows->addWidget(progressPanel, 1);
    webView->setAccessibleName(u"Upload page"_s);
    dropPanel->setAccessibleName(u"Drop files here"_s);
    makeStatusBar();
    makeKeys();
    connect(mainView, &DragView::dragHovers, dropPanel, &DropPanel::setHighlighted);

    setAskingShown(false);
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
    header->addLayout(headerButtonPlace_);
    return header;
}

void MainWindow::makeProgressPanel()
{
    auto* const rows = new QVBoxLayout(progressPanel);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(progressGrid);

    auto* const style = new HeaderStyle;
    style->setParent(progressGrid);
    progressGrid->horizontalHeader()->setStyle(style);
    progressGrid->setItemDelegate(new CellDelegate(progressGrid));
    progressGrid->setAccessibleName(u"Uploads"_s);
    progressGrid->setSelectionBehavior(QAbstractItemView::SelectRows);
    progressGrid->setEditTriggers(QAbstractItemView::NoEditTriggers);
    progressGrid->setTabKeyNavigation(false); // the Tab key leaves the table
    progressGrid->setTextElideMode(Qt::ElideMiddle);
    progressGrid->setWordWrap(false);
    progressGrid->setShowGrid(false);
    progressGrid->setAlternatingRowColors(true);
    progressGrid->setItemDelegateForColumn(StatusTableModel::Percent,
                                           new PercentDelegate(progressGrid));
    // Rows are all of one height, so that the view need not measure them.
    QHeaderView* const rowHeader = progressGrid->verticalHeader();
    rowHeader->setSectionResizeMode(QHeaderView::Fixed);
    rowHeader->setDefaultSectionSize(static_cast<int>(fontMetrics().height() * kRowHeightInLines));
    rowHeader->hide();
    progressGrid->horizontalHeader()->setHighlightSections(false);
}

void MainWindow::setGridModel(QAbstractItemModel* model)
{
    progressGrid->setModel(model);
    QHeaderView* const columns = progressGrid->horizontalHeader();
    columns->setSectionResizeMode(QHeaderView::Interactive);
    columns->setSectionResizeMode(StatusTableModel::File, QHeaderView::Stretch);
    const QFontMetrics metrics = fontMetrics();
    columns->resizeSection(StatusTableModel::Status,
                           metrics.horizontalAdvance(u"  Uploading at 0000.000 MB/s  "_s));
    columns->resizeSection(StatusTableModel::Percent,
                           metrics.averageCharWidth() * kPercentWidthInCharacters);
}

void MainWindow::makeStatusBar()
{
    fileStatusBarLabel->setForegroundRole(QPalette::PlaceholderText);
    filenameStatusBarLabel->setElidedText(u"[none]"_s);
    uploadStatusBarLabel->setSteadyText(u"Upload rate: 0.000 MB/s"_s);
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

void MainWindow::makeKeys()
{
    const auto addKey = [this](const QString& text, const QKeySequence& key, auto receiver) {
        auto* const action = new QAction(text, this);
        action->setShortcut(key);
        connect(action, &QAction::triggered, this, receiver);
        addAction(action);
    };
    addKey(u"Browse…"_s, QKeySequence(Qt::CTRL | Qt::Key_O), &MainWindow::browseRequested);
    addKey(u"Quit"_s, QKeySequence(Qt::CTRL | Qt::Key_Q), &MainWindow::quitRequested);
    addKey(u"Leave the Page"_s, QKeySequence(Qt::Key_F6), &MainWindow::moveFocusOutOfPage);
    connect(browseButton, &QPushButton::clicked, this, &MainWindow::browseRequested);
}

void MainWindow::moveFocusOutOfPage()
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

void MainWindow::setAskingShown(bool shown)
{
    infoLabel->setVisible(shown);
    filenameLabel->setVisible(shown);
    if (!shown)
        queueLabel->hide();
    arrange();
}

void MainWindow::setPanelsShown(bool drop, bool progress)
{
    dropPanel->setVisible(drop);
    progressPanel->setVisible(progress);
    arrange();
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

void MainWindow::arrange()
{
    heading_->setText(progressPanel->isHidden() ? kProductName.toString() : u"Uploads"_s);
    hint_->setVisible(!progressPanel->isHidden());
    heading_->setVisible(filenameLabel->isHidden() && dropPanel->isHidden());

    const bool focused = browseButton->hasFocus();
    QVBoxLayout* const place =
        dropPanel->isHidden() ? headerButtonPlace_ : dropPanel->buttonPlace();
    if (place->indexOf(browseButton) < 0) {
        place->addWidget(browseButton);
        browseButton->show();
        if (focused)
            browseButton->setFocus();
    }
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() != QEvent::WindowStateChange)
        return;
    // Some desktops keep a minimised window as if it were on screen, and the toolkit paints on.
    // What has changed meanwhile is painted when updates are enabled again.
    progressPanel->setUpdatesEnabled(!isMinimized());
    statusBar()->setUpdatesEnabled(!isMinimized());
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
