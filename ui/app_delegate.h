// The application's way in for opened files and its way out.
//
// The toolkit's own rules for quitting are switched off: closing the last window and quitting both
// go through applicationShouldTerminate(), and the window is asked once at most.
#pragma once

#include "queue/file_url.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <vector>

class QSessionManager;

namespace quenmoor {

// Main thread only. One for the process, made after the application object.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    AppDelegate();

    // The first of the application's windows: the one that is asked before the end.
    void setWindow(QWidget* window) { window_ = window; }

    // The files of the latest request to open some; reading does not empty it.
    const std::vector<FileUrl>& droppedFiles() const { return droppedFiles_; }

    // A request to open `urls`, which replaces the one before, read or not. Nobody is told.
    void applicationOpenFiles(std::vector<FileUrl> urls) { droppedFiles_ = std::move(urls); }

    // Asks a visible window to close, as its close button does; the window may ask the user.
    // False when it stays. A window that is hidden or minimised is not asked.
    bool applicationShouldTerminate();

    // A request to quit, which the user may refuse.
    void terminate();

    // Ends the event loop without asking anybody; main() returns `status`.
    void terminateAtOnce(int status);

    // The last window has closed, which ends the program.
    void lastWindowClosed() { terminate(); }

    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    // Before any event loop is told to end.
    void willTerminate();

private:
    void fileOpened(const QUrl& url);
    void sessionEnds(QSessionManager& manager);

    QPointer<QWidget> window_;
    std::vector<FileUrl> droppedFiles_;
    std::vector<FileUrl> opening_; // of the request that is coming in
    QTimer requestComplete_;
    bool terminating_ = false;
};

} // namespace quenmoor
