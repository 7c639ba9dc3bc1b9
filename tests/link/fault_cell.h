// One upload over real UDT with one fault, and what came out.
#pragma once

#include "bench/udp_relay.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/temp_folder.h"

#include <array>
#include <functional>

namespace quenmoor {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = AttemptEventKind;

inline constexpr std::size_t kSize = 6'000'000;
inline constexpr PathQuality kPath{2ms, 0, 20e6, 50ms}; // 2.5 s for a file
inline constexpr auto kCellLimit = 200s;

// When a fault begins: at the first event of its kind, and of its step if the kind is StepChanged.
struct Phase {
    const char* name;
    Kind kind;
    AttemptStep step{};
};
struct Running;

struct Cell {
    std::string name;
    Phase phase;
    std::function<void(Running&)> inject = {}; // on a thread of its own
    std::vector<Fault> service = {};           // of the first attempt
    PathQuality path = kPath;
    std::optional<int> failures = {}; // before the file arrives; any number if there is none
    const char* reason = "";          // part of the first failure's reason
    bool arrives = true;
    bool resumes = false; // the last attempt continues a copy
    std::size_t size = kSize;
    Congestion congestion = Congestion::Paced;
};

// One upload and its service.
struct Running {
    explicit Running(const Cell& what) : cell(what)
    {
        tokens.add("token");
        startServer(0);
        relay.emplace(server->port(), cell.path);
        if (cell.phase.step == AttemptStep::Confirm) // is asked about a shorter copy
            std::ofstream(root.path() / "clip.mov") << content.substr(0, cell.size / 2);
        queues.addFiles(std::array{FileUrl::fromPath(path)});
        queues.acceptToken("token");
        server->setFaults(cell.service, 1);
    }

    // The library releases the port of a former server after some seconds.
    void startServer(std::uint16_t port)
    {
        std::string error;
        server.reset();
        store.reset();
        store = UploadStore::open(root.path(), error);
        for (int tries = 0; tries < 600; ++tries) {
            TransferServerSettings settings;
            settings.port = port;
            server.emplace(settings, *store, tokens);
            if (server->start(error))
                return;
            std::this_thread::sleep_for(50ms);
        }
        throw std::runtime_error(error);
    }

    void cutFor(std::chrono::seconds time)
    {
        relay->setCut(true);
        std::this_thread::sleep_for(time);
        relay->setCut(false);
    }

    const Cell& cell;
    const TempFolder root; // of the service
    const TempFolder folder;
    const std::string content = sampleContent(cell.size);
    const std::filesystem::path path = folder.file("clip.mov", content);
    TokenStore tokens;
    std::unique_ptr<UploadStore> store;
    std::optional<TransferServer> server;
    std::optional<UdpRelay> relay;
    UploadQueues queues;
    SystemClock clock;
};

struct Outcome {
    std::string problem;              // empty: as expected
    double noticed = -1, ended = -1;  // seconds since the fault began
    std::vector<std::string> reasons; // of the failed attempts
    std::string rowText;
};

// Watches the events of an upload, and injects its fault.
struct Watch : FakeUploadView {
    void attemptChanged(const AttemptEvent& event) override
    {
        FakeUploadView::attemptChanged(event);
        onEvent(event);
    }
    std::function<void(const AttemptEvent&)> onEvent;
};

class CellRun {
public:
    explicit CellRun(const Cell& cell) : cell_(cell), running_(cell) {}

    Outcome run()
    {
        Watch view;
        view.answer = [](const Alert&) { return kSecondButton; };
        view.onEvent = [this](const AttemptEvent& event) { onEvent(event); };
        UdtTransferLink link("127.0.0.1", running_.relay->port(), cell_.congestion);
        UploadEngine engine(running_.queues, link, view, running_.clock);
        {
            std::jthread limit([this](const std::stop_token& stop) {
                SystemClock clock;
                if (clock.sleep(kCellLimit, stop) && !stop.stop_requested())
                    running_.clock.end();
            });
            engine.uploadFile();
        }
        if (injector_.joinable())
            injector_.join();
        outcome_.rowText = running_.queues.tableList().cell("Status", 0);
        outcome_.problem = problem();
        return outcome_;
    }

private:
    double sinceFault() const
    {
        return std::chrono::duration<double>(steady_clock::now() - begin_).count();
    }

    // Upload and monitor thread, never both at a time.
    void onEvent(const AttemptEvent& event)
    {
        if (event.kind == cell_.phase.kind &&
            (event.kind != Kind::StepChanged || event.step == cell_.phase.step) && !began_) {
            began_ = true;
            begin_ = steady_clock::now();
            if (cell_.inject)
                injector_ = std::thread([this] { cell_.inject(running_); });
        }
        if (event.kind == Kind::StepChanged && event.step == AttemptStep::Send)
            resumed_ = event.bytes > 0;
        if (event.kind == Kind::Failed) {
            outcome_.noticed = outcome_.reasons.empty() ? sinceFault() : outcome_.noticed;
            outcome_.reasons.push_back(event.reason);
        }
        if (event.kind == Kind::Finished || (event.kind == Kind::Failed && !cell_.arrives)) {
            outcome_.ended = sinceFault();
            finished_ = event.kind == Kind::Finished;
            running_.clock.end();
        }
    }

    std::string problem() const
    {
        const auto& reasons = outcome_.reasons;
        if (!began_)
            return "the phase was not reached";
        if (finished_ != cell_.arrives)
            return "the upload did not end as expected";
        if (outcome_.rowText != (cell_.arrives ? "Finished" : "Waiting (Error)"))
            return "wrong row text: " + outcome_.rowText;
        if (cell_.arrives && contentOf(running_.root.path() / "clip.mov") != running_.content)
            return "the stored bytes differ";
        if (cell_.failures && std::ssize(reasons) != *cell_.failures)
            return "expected failures: " + std::to_string(*cell_.failures);
        if (std::ranges::count(reasons, "") > 0)
            return "a failure has no reason";
        if (*cell_.reason != '\0' &&
            (reasons.empty() || reasons[0].find(cell_.reason) == std::string::npos))
            return std::string("expected the reason: ") + cell_.reason;
        if (cell_.resumes && !resumed_)
            return "the copy was not resumed";
        const PathCounts counts = const_cast<Running&>(running_).relay->stop();
        if ((cell_.path.loss > 0 && counts.retransmitted == 0) ||
            (cell_.path.duplicated > 0 && counts.duplicated == 0) ||
            (cell_.path.reordered > 0 && counts.reordered == 0))
            return "the path injected nothing";
        return {};
    }

    const Cell& cell_;
    Running running_;
    Outcome outcome_;
    std::thread injector_;
    steady_clock::time_point begin_ = steady_clock::now();
    bool began_ = false, finished_ = false, resumed_ = false;
};

} // namespace quenmoor
