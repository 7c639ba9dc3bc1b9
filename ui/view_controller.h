// The controller of the main window: what the service page says, what the user does and what the
// engine reports come together here.
//
// The window is in one of four states. Starting: the page loads, nothing else happens. Ready: the
// page has shown itself. Idle: nothing waits for the page, files may be dropped. Asking: the page
// asks about the first waiting file. The first "index" ends Starting for good.
#pragma once

#include "ui/main_window.h"
#include "ui/page/service_page.h"
#include "ui/page/version_check.h"
#include "ui/qt_upload_view.h"
#include "ui/status_table_model.h"

#include <deque>

namespace quenmoor {

class AppDelegate;
class Desktop;
class UploadEngine;

// Main thread only.
class ViewController : public QObject {
    Q_OBJECT

public:
    // All of them outlive the controller.
    struct Surroundings {
        UploadQueues& queues;
        UploadEngine& engine;
        QtUploadView& view;
        ServicePage& page;
        const AppDelegate& delegate;
        Desktop& desktop;
    };

    struct Client {
        QString versionText;
        Version version;
        QString baseUrl; // of the service page, without a query
    };

    ViewController(const Surroundings& surroundings, Client client);

    MainWindow& window() { return window_; }

    // Called once, before the window is shown.
    void viewDidLoad();

    void addFiles(const std::vector<FileUrl>& files);

    // Shows the first waiting file and loads its page, or the idle view.
    void updateView();

    // Every title of the page's main frame. One that arrives while another one's question stands
    // waits for its turn.
    void webViewDidReceiveTitle(const PageSignal& signal);

    // Asks when files wait or are under upload; only "Yes" lets the window close.
    bool windowShouldClose();

    void browseButtonClick();

Q_SIGNALS:
    void terminationRequested();

private:
    void connectParts();

    // One for each title that means something.
    void handleTitle(const PageSignal& signal);
    void sessionReceived(const PageSignal& signal);
    void tokenReceived(const PageSignal& signal);
    void indexReceived(const PageSignal& signal);
    void cancelReceived(const PageSignal& signal);

    void tellOutOfDate(const PageSignal& signal);

    void showHeadFile();
    void showIdle();
    void reloadProgressGrid(std::optional<std::int32_t> percent);

    // Set once at construction.
    Surroundings with_;
    const Client client_;

    // The model outlives the window that shows it.
    StatusTableModel tableModel_;
    MainWindow window_;

    std::optional<QString> session_;
    bool starting_ = true;
    bool closeQuestionOpen_ = false;
    bool handlingTitle_ = false;
    std::deque<PageSignal> titles_; // received and not handled yet
};

} // namespace quenmoor
