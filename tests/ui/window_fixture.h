// The window over a fake or real page, a fake desktop and a fake link; all other parts are real.
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

namespace quenmoor {

class FakePage : public ServicePage {
public:
    std::vector<std::string> loads;
    LoadNumber number = 0; // of the latest load
    bool failed = false;

    QWidget* widget() override { return widget_; }
    LoadNumber load(const QUrl& url) override
    {
        loads.push_back(url.toEncoded().toStdString());
        return ++number;
    }
    void endOverload(const QString& /*what*/) override {}
    bool hasFailed() const override { return failed; }

    void signal(const QString& title, const std::optional<QString>& session = QStringLiteral("s1"),
                const std::optional<QString>& token = {})
    {
        Q_EMIT titleReceived({title, session, token, {}, {}, {}, {}, number});
    }

private:
    QWidget* widget_ = new QWidget; // the window takes ownership
};

struct FakeDesktop : Desktop {
    std::optional<std::int32_t> answer; // of runModal
    std::function<void()> whileModal;   // called by the next runModal
    std::vector<Alert> alerts;
    std::vector<QUrl> opened;

    std::optional<std::int32_t> runModal(QWidget* /*window*/, const Alert& alert) override
    {
        alerts.push_back(alert);
        if (const auto act = std::exchange(whileModal, nullptr))
            act();
        return answer;
    }
    void openModal(QWidget* /*window*/, const QString& /*title*/, const Alert& /*alert*/,
                   std::function<void(std::int32_t)> /*onAnswer*/) override
    {
    }
    void chooseFiles(QWidget* /*window*/,
                     std::function<void(const std::vector<FileUrl>&)> /*onChosen*/) override
    {
    }
    void openUrl(const QUrl& url) override { opened.push_back(url); }
};

// The upload thread blocks in its first report until the event loop runs. A test that does not run
// the loop therefore finds a file with a token at the head of the upload queue.
template <typename Page>
class WindowOver {
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
    Page page;
    ViewController controller;
    MainWindow& window = controller.window();

    explicit WindowOver(const QString& baseUrl = QStringLiteral("https://host/page"),
                        auto&&... pageArguments)
        : engine(queues, fakeLink, view, clock),
          page(std::forward<decltype(pageArguments)>(pageArguments)...),
          controller({queues, engine, view, page, delegate, desktop},
                     {QStringLiteral("2.3.4"), {2, 3, 4}, baseUrl})
    {
    }
    ~WindowOver()
    {
        bridge.close();
        clock.end();
        if (!engine.waitForEnd(std::chrono::minutes(1)))
            std::abort();
    }

    FileUrl file(const std::string& name) const
    {
        return FileUrl::fromPath(folder.file(name, std::string(10, 'x')));
    }

    // Brings the window to the idle state.
    void start()
    {
        controller.viewDidLoad();
        page.signal(QStringLiteral("index"));
        page.signal(QStringLiteral("session"));
        page.loads.clear();
    }

    bool logged(const std::string& start) const
    {
        return std::ranges::any_of(
            log.system(), [&](const std::string& line) { return line.starts_with(start); });
    }
};

using WindowFixture = WindowOver<FakePage>;

} // namespace quenmoor
