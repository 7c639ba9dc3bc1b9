// The window over a fake page, a fake desktop and a fake link; all other parts are real.
#pragma once

#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/app_delegate.h"
#include "ui/desktop.h"
#include "ui/view_controller.h"

#include <QUrl>
#include <algorithm>
#include <deque>

namespace quenmoor {

class FakePage : public ServicePage {
public:
    std::vector<std::string> loads;

    QWidget* widget() override { return widget_; }
    void load(const QUrl& url) override { loads.push_back(url.toEncoded().toStdString()); }

    void signal(const QString& title, const std::optional<QString>& session = QStringLiteral("s1"),
                const std::optional<QString>& token = {})
    {
        Q_EMIT titleReceived({title, session, token, {}, {}, {}, {}});
    }

private:
    QWidget* widget_ = new QWidget; // the window takes ownership
};

struct FakeDesktop : Desktop {
    std::deque<std::optional<std::int32_t>> answers; // of runModal; nullopt when it is empty
    std::function<void()> whileModal;                // called by runModal
    std::vector<Alert> alerts;

    std::optional<std::int32_t> runModal(QWidget* /*window*/, const Alert& alert) override
    {
        alerts.push_back(alert);
        if (whileModal)
            whileModal();
        if (answers.empty())
            return std::nullopt;
        const auto given = answers.front();
        answers.pop_front();
        return given;
    }
    void openModal(QWidget* /*window*/, const QString& /*title*/, const Alert& /*alert*/,
                   std::function<void(std::int32_t)> /*onAnswer*/) override
    {
    }
    void chooseFiles(QWidget* /*window*/,
                     std::function<void(const std::vector<FileUrl>&)> /*onChosen*/) override
    {
    }
    void openUrl(const QUrl& /*url*/) override {}
};

// The upload thread blocks in its first report until the event loop runs. A test that does not run
// the loop therefore finds a file with a token at the head of the upload queue.
class WindowFixture {
public:
    const TempFolder folder;
    RecordingLog log;
    UploadQueues queues;
    QtMainThreadBridge bridge;
    SystemClock clock;
    FakeTransferLink fakeLink;
    QtUploadView view{bridge};
    UploadEngine engine;
    AppDelegate delegate;
    FakeDesktop desktop;
    FakePage page;
    ViewController controller;
    MainWindow& window = controller.window();

    WindowFixture()
        : engine(queues, fakeLink, view, clock),
          controller({queues, engine, view, page, delegate, desktop},
                     {QStringLiteral("2.3.4"), {2, 3, 4}, QStringLiteral("https://host/page")})
    {
        delegate.setWindow(&window);
    }
    ~WindowFixture()
    {
        bridge.close();
        clock.end();
        if (!engine.waitForEnd(std::chrono::minutes(1)))
            std::abort();
    }

    FileUrl file(const std::string& name, std::size_t size = 10) const
    {
        return FileUrl::fromPath(folder.file(name, std::string(size, 'x')));
    }

    // Brings the window to the idle state.
    void start()
    {
        controller.viewDidLoad();
        page.signal(QStringLiteral("index"));
        page.signal(QStringLiteral("session"));
        page.loads.clear();
    }

    std::size_t waiting() const { return queues.fileQueue().size(); }

    std::size_t logged(const std::string& line) const
    {
        const auto lines = log.system();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
};

} // namespace quenmoor
