// The controller of the main window: reacts to the service page, the user and the engine.
//
// The window is in one of four states. Starting: the page is loading; files are queued but not
// shown. Ready: the page has signalled "index". Idle: no file waits for a token; files can be
// dropped. Asking: the page asks about the first file in the queue. Starting is never entered
// again.
#pragma once

#include "ui/main_window.h"
#include "ui/qt_upload_view.h"
#include "ui/service_page.h"
#include "ui/status_table_model.h"

#include <QElapsedTimer>
#include <QTimer>
#include <deque>

namespace quenmoor {

class AppDelegate;
class Desktop;
class UploadEngine;

// Main thread only.
class ViewController : public QObject {
    Q_OBJECT

public:
    // All of them must outlive the controller.
    struct Dependencies {
        UploadQueues& queues;
        UploadEngine& engine;
        QtUploadView& view;
        ServicePage& page;
        AppDelegate& delegate;
        Desktop& desktop;
    };

    struct Client {
        QString versionText;
        Version version;
        QString baseUrl; // of the service page, without a query
    };

    ViewController(const Dependencies& dependencies, Client client);

    MainWindow& window() { return window_; }

    // Call it once, before the window is shown.
    void viewDidLoad();

    // Queues the readable files of `files` and shows how many were skipped. Queues a part of a long
    // list, and the rest in later turns of the event loop.
    void addFiles(const std::vector<FileUrl>& files);

    // Shows the first file in the queue and loads its page, or shows the idle view. A page that
    // already asks about this file with the same URL is not loaded again.
    void updateView();

    // Handles one title of the page. A title that arrives while the alert of an earlier one is open
    // is handled after it. Titles of an earlier load are ignored, and so is every answer ("token"
    // or "cancel") except the first one of the load for the first file in the queue.
    void webViewDidReceiveTitle(const PageSignal& signal);

    // Asks the user if files are queued or under upload. Returns true if the window may close.
    bool windowShouldClose();

    void browseButtonClick();

Q_SIGNALS:
    void terminationRequested();
    // A file of `size` bytes has entered the upload queue.
    void fileAccepted(qint64 size);

private:
    void connectParts();

    void handleTitle(const PageSignal& signal);
    void sessionReceived(const PageSignal& signal);
    void tokenReceived(const PageSignal& signal);
    void indexReceived(const PageSignal& signal);
    void cancelReceived(const PageSignal& signal);

    // The user does not want to upload the file that the page asks about.
    void skipFile();

    // Tries again later if the system refuses the upload thread.
    void startUpload();

    // Returns whether the answer `title` of the latest load counts.
    bool takeAnswer(std::string_view title);

    void loadPage(const QUrl& url);
    void stopOutdatedClient(const PageSignal& signal);

    void takeIncoming();
    void showHeadFile();
    void showIdle();
    void reloadProgressGrid(std::optional<std::int32_t> percent);

    // Set once at construction.
    Dependencies deps_;
    const Client client_;

    // Declared before the window, which uses the model until it is destroyed.
    StatusTableModel tableModel_;
    MainWindow window_;

    std::vector<FileUrl> incoming_; // added, the first intake_.taken of them already queued
    Intake intake_;
    QTimer intakeTimer_;      // between two slices of an intake
    QTimer startTimer_{this}; // until the next attempt to start the upload thread
    std::optional<QString> session_;
    bool starting_ = true;
    bool sessionSeen_ = false; // opened files wait for the first "session"
    bool closeQuestionOpen_ = false;
    bool handlingTitle_ = false;
    std::deque<PageSignal> titles_; // received, not yet handled
    PageLog pageLog_;

    // The latest load.
    QUrl url_;
    LoadNumber load_ = 0;
    bool awaitsAnswer_ = false; // it is for the head of the file queue and has not been answered
    EventLimit sessionLimit_{0, 0}; // of the sessions for the head of the file queue
    QElapsedTimer sinceSkip_;
};

} // namespace quenmoor
