// The real window with the real page engine, against the whole local service: https and UDT, each
// on a free port of this machine. Only the user is missing; a test presses the buttons.
#pragma once

#include "devservice/page_server.h"
#include "devservice/tokens.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/app_delegate.h"
#include "ui/desktop.h"
#include "ui/page/web_service_page.h"
#include "ui/startup_and_exit.h"
#include "ui/view_controller.h"

#include <memory>

namespace quenmoor {

// The desktop, but for the user's browser.
class NotingDesktop : public QtDesktop {
public:
    std::vector<QUrl> opened;
    void openUrl(const QUrl& url) override { opened.push_back(url); }
};

// Main thread. Waits end by themselves; a wait that ran out fails the test.
class WholeWindow {
public:
    explicit WholeWindow(const Certificate& certificate, PageSettings settings = {});
    ~WholeWindow();

    // Shows the window and waits for its idle state.
    void start();

    void drop(const std::vector<std::filesystem::path>& paths);

    // Waits until the page asks about `name`, then presses its button: "upload" or "cancel".
    void answerPage(const std::string& name, const QString& button);

    // Waits for an alert and presses its button.
    void answerAlert(const QString& button);

    bool waitForAlert();
    bool waitForStatus(std::size_t row, const QString& status);
    QString statusOf(std::size_t row) const;

    // Stops the transfer server, as a kill would, and starts it on the same port.
    void restartTransferServer();

    std::string stored(const std::string& name) const { return contentOf(root.path() / name); }

    const TempFolder files; // the user's
    const TempFolder root;  // the server's
    SilentLog log;

    TokenStore tokens{std::chrono::steady_clock::now};
    SessionStore sessions{tokens, {}, std::chrono::steady_clock::now};
    PageServer pageServer;
    std::unique_ptr<UploadStore> store;
    std::unique_ptr<TransferServer> transferServer;

    UploadQueues queues;
    QtMainThreadBridge bridge;
    SystemClock clock;
    std::unique_ptr<UdtTransferLink> link;
    QtUploadView view{bridge};
    std::unique_ptr<UploadEngine> engine;
    AppDelegate delegate;
    NotingDesktop desktop;
    std::unique_ptr<WebServicePage> page;
    std::unique_ptr<ViewController> controller;

private:
    void startTransferServer(std::uint16_t port);
    QString inPage(const QString& script);
};

} // namespace quenmoor
