// The real window with the browser engine in front of a local service in the same process. A test
// acts as the user: it drops files and clicks buttons.
#pragma once

#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/local_service.h"
#include "ui/app_delegate.h"
#include "ui/desktop.h"
#include "ui/page/web_service_page.h"
#include "ui/startup_and_exit.h"
#include "ui/view_controller.h"

namespace quenmoor {

// QtDesktop, except that it records the URLs instead of opening them in a browser.
class RecordingDesktop : public QtDesktop {
public:
    std::vector<QUrl> opened;
    void openUrl(const QUrl& url) override { opened.push_back(url); }
};

// Main thread only. Every wait has a time limit, after which the test fails.
class WholeWindow {
public:
    // `service` is running and outlives the window.
    explicit WholeWindow(LocalService& service, const QString& pageUrl = {});
    ~WholeWindow();

    // Shows the window and waits for its idle state.
    void start();

    void drop(const std::vector<std::filesystem::path>& paths);

    // Returns the result of `script` in the page, once it is not empty.
    QString inPage(const QString& script);

    // Waits until the page asks about `name`, then clicks its button "upload" or "cancel".
    void answerPage(const std::string& name, const QString& button);

    // Waits for an alert and clicks its button. Returns the title of the alert.
    QString answerAlert(const QString& button);

    bool waitForStatus(std::size_t row, const QString& status);

    const TempFolder files; // the user's
    UploadQueues queues;
    QtMainThreadBridge bridge;
    SystemClock clock;
    UdtTransferLink link;
    QtUploadView view{bridge};
    UploadEngine engine;
    AppDelegate delegate;
    RecordingDesktop desktop;
    WebServicePage page;
    ViewController controller;
    MainWindow& window = controller.window();
};

} // namespace quenmoor
