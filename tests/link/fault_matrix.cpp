// Uploads over real UDT, in real time, with one fault in one phase each. Prints a line for every
// cell and fails unless each file arrives with identical bytes, or fails with the right reason.
//
// link_fault_matrix [--long] [TEXT]: the cells whose name contains TEXT; --long adds those that
// take minutes.
#include "tests/fakes/quiet_log.h"
#include "tests/link/fault_cell.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <iostream>

namespace quenmoor {
namespace {

constexpr std::size_t kParallel = 24;

constexpr Phase kConnect{"connect", Kind::Started}, kMiddle{"middle", Kind::Progress},
    kFirst{"first block", Kind::StepChanged, AttemptStep::Send};
constexpr Phase kPhases[]{
    kConnect,
    {"rendezvous", Kind::StepChanged, AttemptStep::Rendezvous},
    {"response", Kind::StepChanged, AttemptStep::Response},
    {"confirmation", Kind::StepChanged, AttemptStep::Confirm},
    kFirst,
    kMiddle,
    {"drain", Kind::StepChanged, AttemptStep::Drain}, // the last block was passed to the library
    {"closing", Kind::StepChanged, AttemptStep::Finish}};

// Every phase with the faults that can begin in each.
void addPhaseCells(std::vector<Cell>& cells, bool isLong)
{
    const auto cut = [](std::chrono::seconds time) {
        return [time](Running& with) { with.cutFor(time); };
    };
    const auto restart = [](Running& with) { with.startServer(with.server->port()); };
    for (const Phase& phase : kPhases) {
        const std::string at = std::string(phase.name) + ": ";
        if (isLong)
            cells.push_back({at + "path cut for 60 s", phase, cut(60s)});
        cells.push_back({at + "server restarted", phase, restart});
        cells.push_back({at + "path cut for 8 s", phase, cut(8s)});
    }
}

// Faults of the service's documents and of its reading.
void addServiceCells(std::vector<Cell>& cells)
{
    const auto add = [&](std::string name, Fault fault, int failures, const char* reason = "",
                         bool resumes = false) -> Cell& {
        cells.push_back({std::move(name), kConnect, {}, {fault}, kPath, failures, reason});
        cells.back().resumes = resumes;
        return cells.back();
    };
    using enum FaultKind;
    add("rendezvous: refused", {RefuseRendezvous}, 1, "no answer to the rendezvous within 30 s");
    add("response: none", {NeverAnswer}, 1, "no message from the server within 10 s");
    add("response: 2 s late", {AnswerLate, 2000}, 0);
    // A missing flag counts as true: an equal and complete copy, about which the user is asked.
    add("response: garbage", {GarbageResponse}, 1);
    add("response: truncated", {CutOffResponse}, 1);
    add("middle: link closed", {DropAfter, 1'000'000}, 1, "Connection was broken", true);
    add("middle: server stops reading", {StopReading, 500'000}, 1, "accepted no data for 10 s")
        .size = 20'000'000;
    add("closing: none", {NoClosingDocument}, 1, "", true);
    add("closing: garbage", {GarbageClosing}, 1, "the server holds 0 of", true);
    add("closing: smaller size", {SmallerFinalSize}, 1, "the server holds", true);
    add("closing: larger size", {LargerFinalSize}, 0);
    // The buffers of both ends hold some 24 MB when the last byte is passed to the link. The server
    // reads them for longer than the 10 s in which the closing document has to arrive.
    Cell& slow = add("drain: server reads slowly", {SlowReading, 1'600'000}, 0);
    slow.size = 32'000'000;
    slow.path = {};
    slow.congestion = Congestion::Library;
}

void addPathCells(std::vector<Cell>& cells)
{
    const auto add = [&](const char* name, PathQuality quality) {
        cells.push_back({std::string("whole: ") + name, kConnect, {}, {}, quality, 0});
    };
    for (const std::size_t size : {0U, 1U, 16384U}) {
        add(fmt::format("{} bytes", size).c_str(), {});
        cells.back().size = size;
    }
    add("2 % lost", {2ms, 0.02, 20e6, 50ms});
    add("5 % duplicated", {2ms, 0, 20e6, 50ms, 0.05});
    add("5 % reordered", {2ms, 0, 20e6, 50ms, 0, 0.05});
    add("delayed by 150 ms", {150ms, 0, 20e6, 50ms});
    add("limited to 8 Mbit/s", {2ms, 0, 8e6, 50ms});
    add("lost, duplicated, reordered", {10ms, 0.01, 20e6, 50ms, 0.01, 0.02});
    cells.push_back(cells.back());
    cells.back().name += ", library's control";
    cells.back().congestion = Congestion::Library;
}

void addFileCells(std::vector<Cell>& cells)
{
    namespace fs = std::filesystem;
    const auto add = [&](const Phase& phase, const char* name, std::function<void(Running&)> fault,
                         const char* reason) {
        cells.push_back({std::string(phase.name) + ": file " + name, phase, std::move(fault)});
        cells.back().reason = reason;
        cells.back().arrives = *reason == '\0';
        cells.back().failures = *reason == '\0' ? 0 : 1;
    };
    for (const Phase& phase : {kConnect, kFirst, kMiddle}) {
        add(
            phase, "grown", [](Running& with) { std::ofstream(with.path, std::ios::app) << "x"; },
            "");
        add(
            phase, "truncated", [](Running& with) { fs::resize_file(with.path, 100'000); },
            "the file");
    }
    const auto replace = [](Running& with, auto make) {
        fs::remove(with.path);
        make(with.path.c_str());
    };
    const auto fifo = [=](Running& with) {
        replace(with, [](const char* path) { mkfifo(path, 0600); });
    };
    const auto folder = [=](Running& with) {
        replace(with, [](const char* path) { mkdir(path, 0700); });
    };
    add(
        kConnect, "deleted", [](Running& with) { fs::remove(with.path); }, "the file");
    add(kConnect, "replaced by a FIFO", fifo, "the file");
    add(kConnect, "replaced by a folder", folder, "the file");
    // The open file keeps its content.
    add(
        kMiddle, "deleted", [](Running& with) { fs::remove(with.path); }, "");
    add(kMiddle, "replaced by a FIFO", fifo, "");
}

// Lasts for 5 s; of the whole process, so no other cell may run. The service then refuses the file
// for a minute.
Cell diskFullCell()
{
    return {"first block: server's disk full", kFirst, [](Running&) {
                const auto limit = [](rlim_t bytes) {
                    const rlimit files{bytes, RLIM_INFINITY};
                    setrlimit(RLIMIT_FSIZE, &files);
                };
                limit(1'000'000);
                std::this_thread::sleep_for(5s);
                limit(RLIM_INFINITY);
            }};
}

std::mutex outputMutex;

bool runCell(const Cell& cell)
{
    const Outcome outcome = CellRun(cell).run();
    std::string reasons;
    for (const std::string& reason : outcome.reasons)
        reasons += (reasons.empty() ? "" : "; ") + reason;
    const std::lock_guard lock(outputMutex);
    const auto seconds = [](double time) { return time < 0 ? "-" : fmt::format("{:.1f}", time); };
    fmt::print("| {} | {} | {} | {} | {} | {} |\n", cell.name, outcome.rowText,
               outcome.reasons.size(), seconds(outcome.noticed), seconds(outcome.ended), reasons);
    if (!outcome.problem.empty())
        fmt::print("FAILED {}: {}\n", cell.name, outcome.problem);
    std::fflush(stdout);
    return outcome.problem.empty();
}

int runAll(const std::vector<Cell>& cells, std::size_t parallel)
{
    std::atomic<std::size_t> next{0};
    std::atomic<int> failed{0};
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < parallel; ++i)
        workers.emplace_back([&] {
            for (std::size_t at = 0; (at = next++) < cells.size();)
                failed += runCell(cells[at]) ? 0 : 1;
        });
    workers.clear();
    return failed;
}

std::ptrdiff_t entries(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

// The library frees the threads and descriptors of a connection some seconds after its end.
bool leftNothing(std::ptrdiff_t threads, std::ptrdiff_t descriptors)
{
    for (int tries = 0; tries < 60; ++tries) {
        if (entries("/proc/self/task") <= threads && entries("/proc/self/fd") <= descriptors)
            return true;
        std::this_thread::sleep_for(500ms);
    }
    fmt::print("FAILED: {} threads of {}, {} descriptors of {}\n", entries("/proc/self/task"),
               threads, entries("/proc/self/fd"), descriptors);
    return false;
}

int runMatrix(bool isLong, std::string_view text)
{
    std::vector<Cell> cells;
    addPhaseCells(cells, isLong); // the longest first
    addServiceCells(cells);
    addFileCells(cells);
    addPathCells(cells);
    std::erase_if(cells,
                  [&](const Cell& cell) { return cell.name.find(text) == std::string::npos; });
    fmt::print("| phase: fault | row | failures | noticed, s | ended, s | reasons |\n"
               "|---|---|---|---|---|---|\n");
    UdtSocket::startLibrary(); // its own thread remains
    const auto threads = entries("/proc/self/task");
    const auto descriptors = entries("/proc/self/fd");
    int failed = runAll(cells, kParallel);
    std::size_t count = cells.size();
    if (const Cell full = diskFullCell(); isLong && full.name.find(text) != std::string::npos) {
        failed += runAll({full}, 1);
        ++count;
    }
    failed += leftNothing(threads, descriptors) ? 0 : 1;
    fmt::print("{} cells, {} failed\n", count, failed);
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::SilentLog silent;
    std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit fails instead
    const bool isLong = argc > 1 && std::string_view(argv[1]) == "--long";
    const int text = isLong ? 2 : 1;
    return quenmoor::runMatrix(isLong, argc > text ? argv[text] : "");
}
