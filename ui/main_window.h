// The window as it is laid out: the parts that the controller fills, and the keys that work
// everywhere in it.
#pragma once

#include <QMainWindow>
#include <functional>

class QAbstractItemModel;
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
class SteadyLabel;

// Main thread only. Each part's object name is its name here.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // `webView` shows the service page and becomes a part of the window.
    explicit MainWindow(QWidget* webView);

    // The parts, owned by the window.
    DragView* mainView;
    QLabel* infoLabel;
    ElidedLabel* filenameLabel;
    QLabel* queueLabel;
    QPushButton* browseButton;
    QWidget* webView;
    DropPanel* dropPanel;
    QFrame* progressPanel;
    QTableView* progressGrid;
    QLabel* fileStatusBarLabel;
    ElidedLabel* filenameStatusBarLabel;
    SteadyLabel* uploadStatusBarLabel;
    QProgressBar* statusBarProgressBar;

    void setGridModel(QAbstractItemModel* model);

    // Labels that say which file the page asks about.
    void setAskingShown(bool shown);
    void setPanelsShown(bool drop, bool progress);
    bool isProgressPanelShown() const;
    void setStatusBarShown(bool shown);

    // The page in the whole of the window, or out of sight; it stays loaded.
    void setPageShown(bool shown);

    // Decides whether the window may close; without one it may.
    std::function<bool()> windowShouldClose;

Q_SIGNALS:
    void browseRequested();
    void quitRequested();
    void windowClosed();

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QHBoxLayout* makeHeader();
    void makeProgressPanel();
    void makeStatusBar();
    void makeKeys();
    void moveFocusOutOfPage();

    // The heading stands where nothing else names what the window shows, the Browse button in the
    // drop panel while that is there.
    void arrange();

    QLabel* heading_;
    QLabel* hint_;
    QVBoxLayout* headerButtonPlace_;
};

} // namespace quenmoor
