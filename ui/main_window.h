// The main window: its widgets, their layout and the keyboard shortcuts. ViewController fills the
// widgets and reacts to the signals.
#pragma once

#include <QMainWindow>
#include <functional>

class QFrame;
class QHBoxLayout;
class QLabel;
class QProgressBar;
class QPushButton;
class QTableView;
class QVBoxLayout;

namespace quenmoor {

class DragView;
class DropPanel;
class ElidedLabel;
class NoticeLine;

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
    QPushButton* browseButton;
    NoticeLine* noticeLine;
    QWidget* webView;
    DropPanel* dropPanel;
    QFrame* progressPanel;
    QTableView* progressGrid;
    QLabel* fileStatusBarLabel;
    ElidedLabel* filenameStatusBarLabel;
    QLabel* uploadStatusBarLabel;
    QProgressBar* statusBarProgressBar;

    // Shows or hides the labels about the file that the page asks about.
    void setQuestionShown(bool shown);
    void setPanelsShown(bool drop, bool progress);
    bool isProgressPanelShown() const;
    void setStatusBarShown(bool shown);

    // A hidden page stays loaded.
    void setPageShown(bool shown);

    // Returns whether the window may close. If it is empty, the window always closes.
    std::function<bool()> windowShouldClose;

Q_SIGNALS:
    void browseRequested();
    void quitRequested();
    void windowClosed();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QHBoxLayout* makeHeader();
    void makeProgressPanel();
    void makeStatusBar();
    void makeShortcuts();

    // Moves the keyboard focus to the next of page, Browse button and table. The page handles the
    // Tab key itself.
    void switchFocus();

    // Shows the heading if neither file name nor drop panel is visible, and moves the Browse button
    // into the drop panel while that is visible.
    void updateHeader();

    QLabel* heading_;
    QLabel* hint_;
    QVBoxLayout* headerButtonLayout_;
};

} // namespace quenmoor
