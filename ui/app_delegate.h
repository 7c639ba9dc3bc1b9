// The application's delegate: receives the files that the desktop opens with the program, and
// decides whether the program may quit.
//
// Qt's own quit rules are disabled. Closing the last window and quitting both call
// applicationShouldTerminate(), which asks the window at most once.
#pragma once

#include "queue/file_url.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <utility>
#include <vector>

class QSessionManager;

namespace quenmoor {

class MainWindow;

// Main thread only. One object per process, created after the application object.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    AppDelegate();
    ~AppDelegate() override;

    // The window that is asked before the program quits.
    void setWindow(MainWindow* window);

    // Returns the files of the latest open request and clears them, so that they are queued once.
    std::vector<FileUrl> takeDroppedFiles() { return std::exchange(droppedFiles_, {}); }

    // Handles a request to open `urls`, which replaces a previous one that has not been taken.
    void applicationOpenFiles(std::vector<FileUrl> urls);

    // Closes a visible window as its close button does, so that the user may be asked. Returns
    // false if the window stays open. A hidden or minimised window is not asked.
    bool applicationShouldTerminate();

    // Asks a visible window whether it may close, without closing it: the end of the desktop
    // session can still be cancelled elsewhere. Returns false if the user refuses.
    bool sessionMayEnd();

    // Quits the program unless the user refuses.
    void terminate();

    // Ends the event loop without a question; main() returns `status`.
    void terminateAtOnce(int status);

    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    // takeDroppedFiles() returns the files of a new open request.
    void filesOpened();

    // Emitted before any event loop is told to end.
    void willTerminate();

private:
    void fileOpened(const QUrl& url);
    void sessionEnds(QSessionManager& manager);

    QPointer<MainWindow> window_;
    std::vector<FileUrl> droppedFiles_;
    std::vector<FileUrl> incoming_; // the files received so far of one open request
    QTimer requestComplete_;
    bool terminating_ = false;
    bool sessionEnding_ = false; // the user has been asked, so the end of the session asks nothing
};

} // namespace quenmoor
