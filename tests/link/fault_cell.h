// One upload over real UDT to a service in a process of its own, with one fault that begins in one
// phase, and what came out.
#pragma once

#include "bench/local_service.h"
#include "bench/udp_relay.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"

#include <fmt/format.h>
#include <sys/fsuid.h>
#include <unistd.h>

#include <functional>

namespace quenmoor {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Kind = AttemptEventKind;

// In their order. A confirmation belongs to an upload that broke in the middle before.
enum class Phase : std::uint8_t {
    LookUp,
    Connect,
    Request,
    Rendezvous,
    Response,
    Confirmation,
    First, // block of the file, when it was read and is going to be sent
    Middle,
    Last,
    Drain, // the last block was passed to the library
    Closing,
};
inline constexpr std::array kPhaseNames{"look-up",    "connect",      "request",     "rendezvous",
                                        "response",   "confirmation", "first block", "middle",
                                        "last block", "drain",        "closing"};

inline constexpr std::size_t kSize = 3'000'000;
inline constexpr PathQuality kPath{2ms, 0, 10e6, 50ms}; // 2.5 s for a file

struct Running;
using Action = std::function<void(Running&)>;

// A row of the matrix.
struct Fault {
    std::string name;
    unsigned phases = 0;                  // the cells of the short form, a bit for each phase
    unsigned longPhases = 0;              // and further ones
    std::chrono::seconds time{0};         // from begin to end
    Action begin = {};                    // on the thread that reaches the phase
    Action end = {};                      // on another thread
    std::optional<PathQuality> path = {}; // from begin to end, or for the rest of the upload
    bool freezesClient = false;           // for `time`

    // What must come out.
    std::optional<int> failures = {}; // since the fault began; nothing: any number
    std::string reason = {};          // a part of the first failure's reason
    bool arrives = true;              // otherwise the attempt fails, which ends the cell
    bool sameBytes = true;
    bool resumes = false; // the last attempt continues a copy

    // The upload before the fault begins.
    std::string service = {};  // a fault of the service in the first attempt
    std::string copySize = {}; // of the copy in the service's second response; empty: the true one
    std::string host = "127.0.0.1";
    std::size_t size = kSize;
    PathQuality pathBefore = kPath;
    Congestion congestion = Congestion::Paced;
};

struct Cell {
    const Fault& fault;
    Phase phase;
    // Of the service. Outside the system's range for sockets of any port, of which one could take
    // the port while the service is restarted.
    int port;

    std::string name() const
    {
        return kPhaseNames.at(static_cast<std::size_t>(phase)) + (": " + fault.name);
    }
};

// One upload, its service and the path between them.
struct Running {
    explicit Running(const Cell& running) : cell(running)
    {
        queues.addFiles(std::array{FileUrl::fromPath(path)});
        queues.acceptToken(LocalService::kToken);
        std::filesystem::permissions(folder.path(), std::filesystem::perms(0755)); // not only root
    }

    std::vector<std::string> options() const
    {
        std::vector<std::string> all{"--port",        std::to_string(cell.port),
                                     "--token",       LocalService::kToken,
                                     "--fault-count", "1"};
        const std::string half = fmt::format("drop-after={}", fault.size / 2);
        const std::string& first = cell.phase == Phase::Confirmation ? half : fault.service;
        if (!first.empty())
            all.push_back("--fault=" + first);
        return all;
    }

    // Replaces the size of the copy in the service's packets until the next attempt fails.
    UdpRelay::Edit lie()
    {
        if (fault.copySize.empty())
            return {};
        return [this, truth = fmt::format("<size>{}<", fault.size / 2)](std::string& packet) {
            if (const std::size_t at = packet.find(truth); at != std::string::npos && !failed)
                packet.replace(at, truth.size(), "<size>" + fault.copySize + "<");
        };
    }

    const Cell& cell;
    const Fault& fault = cell.fault;
    const TempFolder folder;
    const std::string content = sampleContent(fault.size);
    const std::filesystem::path path = folder.file("clip.mov", content);
    LocalService service{{.programs = PROGRAMS}, options()};
    std::atomic<bool> failed = false; // since the fault began
    // Its thread reads the members above.
    UdpRelay relay{service.port(), fault.pathBefore, 1, lie()};
    int frozenFile = -1;
    UploadQueues queues;
    SystemClock clock;
};

struct Outcome {
    std::string problem; // empty: as expected
    std::string times;   // in seconds since the fault began: the first failure, the end
    std::string reasons; // of the failures
};

class CellRun : Running, FakeUploadView, UdtTransferLink {
public:
    explicit CellRun(const Cell& running)
        : Running(running), UdtTransferLink(fault.host, relay.port(), fault.congestion)
    {
    }

    Outcome run()
    {
        UploadEngine engine(queues, *this, *this, clock);
        {
            std::jthread limit([this](const std::stop_token& stop) {
                SystemClock other;
                if (other.sleep(fault.time + 150s, stop) && !stop.stop_requested())
                    clock.end();
            });
            engine.uploadFile();
        }
        setfsuid(geteuid()); // a fault may have changed it
        if (ending_.joinable())
            ending_.join();
        return {problem(), noticed_ + ", " + ended_, fmt::format("{}", fmt::join(reasons_, "; "))};
    }

private:
    void attemptChanged(const AttemptEvent& event) override
    {
        if (event.kind == Kind::StepChanged)
            enter(event);
        if (event.kind == Kind::Started) {
            sent_ = 0;
            reach(Phase::LookUp);
            reach(Phase::Connect);
        }
        const std::chrono::duration<double> running = steady_clock::now() - began_;
        const std::string time = fmt::format("{:.1f}", running.count());
        if (event.kind == Kind::Failed && reached_) {
            noticed_ = reasons_.empty() ? time : noticed_;
            reasons_.push_back(event.reason);
            failed = true;
        }
        finished_ = finished_ || event.kind == Kind::Finished;
        if (finished_ || (failed && !fault.arrives)) {
            ended_ = time;
            clock.end();
        }
    }

    void enter(const AttemptEvent& event)
    {
        switch (event.step) {
        case AttemptStep::Rendezvous: return reach(Phase::Rendezvous);
        case AttemptStep::Response: return reach(Phase::Response);
        case AttemptStep::Confirm: return reach(Phase::Confirmation);
        case AttemptStep::Send: resumed_ = event.bytes > 0; return reach(Phase::First);
        case AttemptStep::Drain: return reach(Phase::Drain);
        case AttemptStep::Finish: return reach(Phase::Closing);
        default: return;
        }
    }

    bool sendString(std::int32_t socket, const std::string& text) override
    {
        reach(Phase::Request);
        return UdtTransferLink::sendString(socket, text);
    }

    std::int32_t send(std::int32_t socket, std::span<const char> block) override
    {
        if (sent_ >= fault.size / 2)
            reach(Phase::Middle);
        if (sent_ + block.size() >= fault.size)
            reach(Phase::Last);
        const std::int32_t taken = UdtTransferLink::send(socket, block);
        sent_ += static_cast<std::size_t>(std::max(taken, 0));
        return taken;
    }

    void reach(Phase phase)
    {
        if (phase != cell.phase || reached_)
            return;
        reached_ = true;
        began_ = steady_clock::now();
        if (fault.path)
            relay.setQuality(*fault.path);
        if (fault.begin)
            fault.begin(*this);
        if (fault.freezesClient) { // by the process that awaits the line
            fmt::print("frozen\n");
            std::fflush(stdout);
            std::this_thread::sleep_for(100ms);
        } else if (fault.time > 0s) {
            ending_ = std::thread([this] {
                std::this_thread::sleep_for(fault.time);
                relay.setQuality(kPath);
                if (fault.end)
                    fault.end(*this);
            });
        }
    }

    std::string problem()
    {
        const std::string row = queues.tableList().cell("Status", 0);
        const bool same = contentOf(service.root() / "clip.mov") == content;
        const PathCounts counts = relay.stop();
        const PathQuality quality = fault.path.value_or(kPath);
        const std::tuple<bool, std::string> rows[]{
            {!reached_, "the phase was not reached"},
            {finished_ != fault.arrives, "the upload did not end as expected"},
            {row != (fault.arrives ? "Finished" : "Waiting (Error)"), "wrong row text: " + row},
            {fault.arrives && fault.sameBytes && !same, "the stored bytes differ"},
            {std::ssize(reasons_) != fault.failures.value_or(std::ssize(reasons_)), "failures"},
            {std::ranges::count(reasons_, "") > 0, "a failure has no reason"},
            {fmt::format("{}", fmt::join(reasons_, ";")).find(fault.reason) != 0, "not the reason"},
            {fault.resumes && !resumed_, "the copy was not resumed"},
            // Few packets follow the middle.
            {cell.phase <= Phase::Middle && ((quality.duplicated > 0 && counts.duplicated == 0) ||
                                             (quality.reordered > 0 && counts.reordered == 0) ||
                                             (quality.damaged > 0 && counts.damaged == 0)),
             "the path injected nothing"}};
        if (!fault.sameBytes && !same)
            reasons_.emplace_back("(the stored bytes differ)");
        for (const auto& [isWrong, what] : rows) {
            if (isWrong)
                return what;
        }
        return {};
    }

    // Upload thread.
    std::thread ending_;
    steady_clock::time_point began_ = steady_clock::now();
    std::vector<std::string> reasons_;
    std::size_t sent_ = 0;                    // in this attempt
    std::string noticed_ = "-", ended_ = "-"; // seconds since the fault began
    bool reached_ = false, finished_ = false, resumed_ = false;
};

} // namespace quenmoor
