// The window over a fake page, a fake desktop and a fake link; all else is real.
#pragma once

#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "tests/ui/fakes.h"
#include "ui/app_delegate.h"
#include "ui/view_controller.h"

#include <algorithm>

namespace quenmoor {

// The upload thread waits for the event loop at its first report, so as long as a test does not
// run the loop, a file that got its token stays at the head of the upload queue.
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

    explicit WindowFixture(TransferLink* link = nullptr)
        : engine(queues, link != nullptr ? *link : fakeLink, view, clock),
          controller({queues, engine, view, page, delegate, desktop},
                     {QStringLiteral("2.3.4"), {2, 3, 4}, QStringLiteral("https://host/page")})
    {
        delegate.setWindow(&window);
    }

    ~WindowFixture()
    {
        bridge.close();
        clock.end();
        // Without a limit that a slow machine could meet: a test's links let go by themselves.
        if (!engine.waitForEnd(std::chrono::minutes(1)))
            std::abort();
    }

    FileUrl file(const std::string& name, std::size_t size = 10) const
    {
        return FileUrl::fromPath(folder.file(name, std::string(size, 'x')));
    }

    // Up to the idle state, with what the page would say.
    void start()
    {
        controller.viewDidLoad();
        page.say(QStringLiteral("index"));
        page.say(QStringLiteral("session"));
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
