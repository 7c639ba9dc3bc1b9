// The main window: its widgets, their layout and the keyboard shortcuts. ViewController fills the
// widgets and reacts to the signals.
#pragma once

#include <QMainWindow>
#include <functional>

class QFrame;
class QLabel;
class QPushButton;
class QTableView;
class QVBoxLayout;

namespace quenmoor {

class DragView;
class DropPanel;
class ElidedLabel;
class FlatProgressBar;
class NoticeLine;
class StatusTableModel;
class UploadLine;

// Main thread only. The object name of each public widget is its name here.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // `webView` shows the service page. The window takes ownership of it.
    explicit MainWindow(QWidget* webView);

    // Owned by the window.
    DragView* mainView;
    QLabel* infoLabel;
    ElidedLabel* filenameLabel;
    QLabel* queueLabel;
    QPushButton* skipButton;
    QPushButton* browseButton;
    NoticeLine* noticeLine;
    QWidget* webView;
    DropPanel* dropPanel;
    QFrame* progressPanel;
    QTableView* progressGrid;
    QLabel* fileStatusBarLabel;
    ElidedLabel* filenameStatusBarLabel;
    QLabel* uploadStatusBarLabel;
    FlatProgressBar* statusBarProgressBar;

    // Shows `uploads` in the table and in the texts about it. The model must outlive the window.
    void setUploads(StatusTableModel& uploads);

    // Shows or hides what concerns the file that the page asks about: the labels and Skip.
    void setQuestionShown(bool shown);
    void setPanelsShown(bool drop, bool progress);
    bool isProgressPanelShown() const;
    void setStatusBarShown(bool shown);

    // A hidden page stays loaded. The page is also shown while both panels are hidden, so that the
    // window is never empty.
    void setPageShown(bool shown);

    // Returns whether the window may close. If it is empty, the window always closes.
    std::function<bool()> windowShouldClose;

Q_SIGNALS:
    void browseRequested();
    void skipRequested();
    void quitRequested();
    void windowClosed();

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void makeHeader(QVBoxLayout& rows);
    void makeStatusBar();
    void makeShortcuts();

    // Moves the keyboard focus to the next of page, Browse button and table. The page handles the
    // Tab key itself.
    void switchFocus();

    // Sets every size that depends on the font.
    void setSizes();
    void setColors();

    // Shows what follows from the visible panels and labels: the page, the texts of the header, and
    // the line about the latest upload while the table is hidden.
    void updateParts();
    void updateSummary();

    bool pageWanted_ = true;
    const StatusTableModel* uploads_ = nullptr;
    QLabel* heading_;
    QLabel* summary_;
    QLabel* hint_;
    QFrame* pageFrame_;
    UploadLine* uploadLine_;
};

} // namespace quenmoor
