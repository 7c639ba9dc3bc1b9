// Uploads over real UDT, in real time, with one fault in one phase each. Prints a line for every
// cell, then the matrix, and fails unless each file arrives with identical bytes, or fails with the
// right reason, and nothing remains of any.
//
// link_fault_matrix [--long] [TEXT]: the cells whose name contains TEXT; --long adds those that
// take minutes. --cell NAME: this cell, for another process that freezes this one.
#include "base/process_setup.h"
#include "tests/fakes/quiet_log.h"
#include "tests/link/fault_cell.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <netdb.h>
#include <sys/fanotify.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <utility>

namespace quenmoor {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kParallel = 56;
constexpr PathQuality kMixed{2ms, 0.05, 10e6, 50ms, 0.05, 0.05};
constexpr const char* kSilent = "no message from the server within 10 s";

constexpr unsigned at(Phase phase)
{
    return 1U << static_cast<unsigned>(phase);
}

constexpr unsigned kAll = (1U << kPhaseNames.size()) - 1 - at(Phase::LookUp);
constexpr unsigned kSome = at(Phase::Request) | at(Phase::Confirmation) | at(Phase::Middle) |
                           at(Phase::Drain) | at(Phase::Closing);
constexpr unsigned kMiddle = at(Phase::Middle);
constexpr unsigned kUnopened = at(Phase::Connect); // the file is not open yet
constexpr unsigned kOpen = kMiddle | at(Phase::Last);

// What the resolver answers for the names of some cells, each used by one.
struct LookUp {
    const char* fault;
    const char* host;
    std::chrono::seconds delay;
    int result;
    int count; // later calls succeed at once
    const char* reason;
} lookUps[]{{"name unknown, twice", "unknown.test", 0s, EAI_NONAME, 2, "unknown.test: Name or"},
            {"resolver silent", "silent.test", 10s, EAI_AGAIN, 1, "silent.test: Temporary failure"},
            {"resolver 4 s late", "late.test", 4s, 0, 0, ""}};

Action signalPart(int number)
{
    return [number](Running& with) { kill(with.service.transferPart(), number); };
}

Action limitFiles(rlim_t bytes)
{
    return [limit = rlimit{bytes, RLIM_INFINITY}](Running& with) {
        prlimit(with.service.transferPart(), RLIMIT_FSIZE, &limit, nullptr);
    };
}

Action replaceFile(const std::function<void(const char* path)>& make)
{
    return [make](Running& with) {
        fs::rename(with.path, with.folder.path() / "aside");
        make(with.path.c_str());
    };
}

// Reads of the file, if it is opened later, block until the descriptor is closed. Requires root.
void freezeFile(Running& with)
{
    with.frozenFile = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY);
    fanotify_mark(with.frozenFile, FAN_MARK_ADD, FAN_ACCESS_PERM, AT_FDCWD, with.path.c_str());
}

// The longest first.
std::vector<Fault> networkFaults()
{
    const Action end = [](Running& with) { with.service.signal(SIGTERM); };
    const Action killService = [](Running& with) { with.service.signal(SIGKILL); };
    const Action restart = [](Running& with) { with.service.restart(); };
    constexpr PathQuality cut{.loss = 1};
    constexpr PathQuality damaged{2ms, 0, 10e6, 50ms, 0, 0, 0.02};
    std::vector<Fault> faults{
        {"path cut for 60 s", 0, kAll, 60s, {}, {}, cut},
        {"service frozen for 60 s", 0, kAll, 60s, signalPart(SIGSTOP), signalPart(SIGCONT)},
        {"client frozen for 60 s", 0, kAll, 60s, {}, {}, {}, true},
        // The service refuses the file for a minute after it.
        {"service's disk full", 0, kMiddle, 5s, limitFiles(1'000'000), limitFiles(RLIM_INFINITY)},
        {"path cut for 8 s", kAll, 0, 8s, {}, {}, cut},
        {"service frozen for 8 s", kSome, kAll, 8s, signalPart(SIGSTOP), signalPart(SIGCONT)},
        {"client frozen for 8 s", kSome, kAll, 8s, {}, {}, {}, true},
        {"service ended for 3 s", kAll, 0, 3s, end, restart},
        {"service killed for 3 s", kSome, kAll, 3s, killService, restart},
        {"transfer part killed", kSome, kAll, 0s, signalPart(SIGKILL)},
        {"10 % lost", 0, kAll, 0s, {}, {}, PathQuality{2ms, 0.1, 10e6, 50ms}},
        {"10 % duplicated", 0, kAll, 0s, {}, {}, PathQuality{2ms, 0, 10e6, 50ms, 0.1}},
        {"10 % reordered", 0, kAll, 0s, {}, {}, PathQuality{2ms, 0, 10e6, 50ms, 0, 0.1}},
        {"5 % lost, duplicated, reordered", kAll, 0, 0s, {}, {}, kMixed},
        {"2 % damaged", kAll, 0, 0s, {}, {}, damaged},
        {"2 % damaged, also content", kSome, kAll, 0s, {}, {}, damaged},
        {"delayed by 250 ms", kMiddle, kAll, 0s, {}, {}, PathQuality{250ms, 0, 10e6, 50ms}},
        {"limited to 2 Mbit/s", kMiddle, kAll, 0s, {}, {}, PathQuality{2ms, 0, 2e6, 50ms}},
        {"lost, library's control", kMiddle, kAll, 0s, {}, {}, kMixed}};
    faults.back().congestion = Congestion::Library;
    Fault& content = faults[15];
    content.path->damagesContent = true;
    content.sameBytes = false;
    return faults;
}

// What the service answers, and how it reads, in the first attempt.
std::vector<Fault> serviceFaults()
{
    const auto make = [](std::string name, Phase phase, const char* service, int failures = 1,
                         const char* reason = "") {
        Fault fault{std::move(name), at(phase)};
        fault.service = service;
        fault.failures = failures;
        fault.reason = reason;
        return fault;
    };
    // A missing flag counts as true: garbage is the response about an equal and complete copy.
    std::vector<Fault> faults{
        make("no rendezvous", Phase::Rendezvous, "refuse-rendezvous", 1, "no answer to the rende"),
        make("service stops reading", Phase::Middle, "stop-reading=500000", 1, "the server accep"),
        make("service reads slowly", Phase::Drain, "slow-reading=1600000", 0),
        make("no document", Phase::Response, "never-answer", 1, kSilent),
        make("no document", Phase::Closing, "no-closing-document", 1, kSilent),
        make("document 2 s late", Phase::Response, "answer-late=2000", 0),
        make("garbage", Phase::Response, "garbage-response"),
        make("garbage", Phase::Closing, "garbage-closing", 1, "the server holds 0 of 3000000"),
        make("truncated document", Phase::Response, "cut-off-response"),
        make("link closed", Phase::Middle, "drop-after=1500000", 1, "Connection was broken"),
        make("size too small", Phase::Closing, "smaller-final-size", 1, "the server holds 2999999"),
        make("size too large", Phase::Closing, "larger-final-size", 0)};
    faults[1].size = 20'000'000;
    faults[1].pathBefore.rate = 80e6;
    // The buffers of both ends hold some 24 MB when the last byte is passed to the link. The
    // service reads them for longer than the closing document may take.
    faults[2].size = 32'000'000;
    faults[2].pathBefore = {};
    faults[2].congestion = Congestion::Library;
    for (const char* const size : {"99999999", "3000000", "-5", "99999999999999999999"}) {
        const char* reason = *size == '-' ? "the server reports a copy of -5 bytes" : kSilent;
        faults.push_back(
            make(fmt::format("copy of {} bytes", size), Phase::Confirmation, "", 1, reason));
        faults.back().copySize = size;
        faults.back().resumes = true;
    }
    return faults;
}

std::vector<Fault> fileFaults()
{
    const auto make = [](const char* name, unsigned phases, Action begin, const char* reason = "",
                         std::chrono::seconds time = 0s, Action end = {}) {
        Fault fault{name, phases, 0, time, std::move(begin), std::move(end)};
        fault.failures = *reason == '\0' ? 0 : 1;
        fault.reason = reason;
        fault.arrives = fault.end || *reason == '\0';
        return fault;
    };
    const Action truncate = [](Running& with) { fs::resize_file(with.path, 100'000); };
    const auto none = replaceFile([](const char*) {});
    const auto fifo = replaceFile([](const char* path) { mkfifo(path, 0600); });
    const auto folder = replaceFile([](const char* path) { mkdir(path, 0700); });
    const auto memory = // its first bytes cannot be read
        replaceFile([](const char* path) { fs::create_symlink("/proc/self/mem", path); });
    const Action restore = [](Running& with) {
        fs::rename(with.folder.path() / "aside", with.path);
    };
    const Action thaw = [](Running& with) { close(with.frozenFile); };
    const auto forbid = [](Running& with) {
        fs::permissions(with.path, fs::perms::none);
        setfsuid(geteuid() == 0 ? 65534 : geteuid()); // root may read every file
    };
    std::vector<Fault> faults{
        make("file grown", kUnopened | kOpen,
             [](Running& with) { std::ofstream(with.path, std::ios::app) << "x"; }),
        make("file truncated", kUnopened | kMiddle, truncate, "the file ends after "),
        make("file truncated", at(Phase::Drain), truncate),
        make("file deleted", kUnopened, none, "the file cannot be opened: No such file"),
        make("file deleted", kOpen, none), // the open file keeps its content
        make("file replaced by a FIFO", kUnopened, fifo, "the file cannot be opened: it is not a"),
        make("file replaced by a FIFO", kOpen, fifo),
        make("file replaced by a folder", kUnopened, folder,
             "the file cannot be opened: it is a d"),
        make("file not permitted", kUnopened, forbid, "the file cannot be opened: Permission"),
        make("file unreadable for 15 s", kUnopened, memory, "the file cannot be read: Input/output",
             15s, restore),
        make("file frozen for 8 s", at(Phase::First), freezeFile, "", 8s, thaw),
        make("file frozen for 60 s", 0, freezeFile, "Connection was broken", 60s, thaw)};
    faults.back().longPhases = at(Phase::First);
    if (geteuid() != 0)
        faults.resize(10);
    for (const std::size_t size : {0U, 1U, 16384U}) {
        faults.push_back({fmt::format("none, {} bytes", size), kUnopened});
        faults.back().size = size;
    }
    for (const LookUp& lookUp : lookUps) {
        faults.push_back({lookUp.fault, at(Phase::LookUp)});
        faults.back().host = lookUp.host;
        faults.back().failures = lookUp.count;
        faults.back().reason = lookUp.reason;
    }
    return faults;
}

// Runs the cell in another process, which is frozen when it has reached the phase.
Outcome runFrozen(const Cell& cell)
{
    Process client({"/proc/self/exe", "--cell", cell.name()});
    (void)client.waitFor("frozen");
    client.signal(SIGSTOP);
    std::this_thread::sleep_for(cell.fault.time);
    client.signal(SIGCONT);
    (void)client.exitStatus(300s);
    return {client.textAfter("problem: ").value_or("the client ended"),
            client.textAfter("times: ").value_or(""), client.textAfter("reasons: ").value_or("")};
}

std::vector<Outcome> runAll(const std::vector<Cell>& cells)
{
    std::vector<Outcome> outcomes(cells.size());
    std::mutex output;
    std::atomic<std::size_t> next{0};
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < kParallel; ++i)
        workers.emplace_back([&] {
            for (std::size_t at = 0; (at = next++) < cells.size();) {
                const Cell& cell = cells[at];
                outcomes[at] = cell.fault.freezesClient ? runFrozen(cell) : CellRun(cell).run();
                const std::lock_guard lock(output);
                fmt::print("{}: {} s: {}\n", cell.name(), outcomes[at].times, outcomes[at].reasons);
                if (!outcomes[at].problem.empty())
                    fmt::print("FAILED {}: {}\n", cell.name(), outcomes[at].problem);
                std::fflush(stdout);
            }
        });
    return (workers.clear(), outcomes);
}

// A row for each fault with its times in each phase. The cells of a name are neighbours.
void printMatrix(const std::vector<Cell>& cells, const std::vector<Outcome>& outcomes)
{
    fmt::print("| fault | {} |\n|{}\n", fmt::join(kPhaseNames, " | "),
               fmt::join(std::vector<std::string>(kPhaseNames.size() + 1, "---|"), ""));
    std::array<std::string, kPhaseNames.size()> row;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string& name = cells[i].fault.name;
        row.at(static_cast<std::size_t>(cells[i].phase)) = outcomes[i].times;
        if (i + 1 == cells.size() || cells[i + 1].fault.name != name)
            fmt::print("| {} | {} |\n", name, fmt::join(std::exchange(row, {}), " | "));
    }
}

// The threads, descriptors and heap of this process.
struct Resources {
    static std::ptrdiff_t entries(const char* folder)
    {
        return std::distance(fs::directory_iterator(folder), {});
    }

    std::ptrdiff_t threads = entries("/proc/self/task");
    std::ptrdiff_t descriptors = entries("/proc/self/fd");
    std::size_t heap = mallinfo2().uordblks; // bytes; 0 with some sanitizers
};

// Waits until threads and descriptors are those of `idle`: the library frees the resources of a
// connection some seconds after its end.
Resources resourcesAfter(const Resources& idle)
{
    Resources now;
    for (int tries = 0; tries < 60; ++tries) {
        now = {};
        if (now.threads <= idle.threads && now.descriptors <= idle.descriptors)
            break;
        std::this_thread::sleep_for(500ms);
    }
    return now;
}

int runMatrix(bool isLong, bool isCell, std::string_view text)
{
    std::vector<Fault> faults = networkFaults();
    for (const auto& more : {serviceFaults(), fileFaults()})
        faults.insert(faults.end(), more.begin(), more.end());
    std::vector<Cell> cells;
    int port = 20'000;
    for (const Fault& fault : faults) {
        for (std::size_t phase = 0; phase < kPhaseNames.size(); ++phase) {
            const Cell cell{fault, static_cast<Phase>(phase), ++port};
            const unsigned phases = fault.phases | (isLong || isCell ? fault.longPhases : 0);
            if ((phases & at(cell.phase)) == 0)
                continue;
            if (isCell && cell.name() == text) {
                const auto [problem, times, reasons] = CellRun(cell).run();
                fmt::print("problem: {}\ntimes: {}\nreasons: {}\n", problem, times, reasons);
                return EXIT_SUCCESS;
            }
            if (cell.name().find(text) != std::string::npos)
                cells.push_back(cell);
        }
    }
    UdtSocket::startLibrary(); // its own thread remains
    const Resources idle;
    const Fault none{"none"};
    const std::string problem = CellRun(Cell{none, Phase::Connect, port + 1}).run().problem;
    const Resources before = resourcesAfter(idle); // with what the first upload allocated for good
    const std::vector<Outcome> outcomes = runAll(cells);
    printMatrix(cells, outcomes);
    const Resources after = resourcesAfter(idle);
    const bool isClean = after.threads <= idle.threads && after.descriptors <= idle.descriptors &&
                         after.heap <= before.heap + 100'000 + 1000 * cells.size();
    fmt::print("{}: {} threads of {}, {} descriptors of {}, {} bytes of {}\n",
               isClean ? "nothing remains" : "FAILED", after.threads, idle.threads,
               after.descriptors, idle.descriptors, after.heap, before.heap);
    const auto failed = std::ranges::count_if(
        outcomes, [](const Outcome& outcome) { return !outcome.problem.empty(); });
    fmt::print("{} cells, {} failed {}\n", cells.size(), failed, problem);
    return isClean && failed == 0 && problem.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace
} // namespace quenmoor

// Answers for the product in place of the system's resolver.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints,
                           addrinfo** found)
{
    static const auto system =
        reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    const auto at = std::ranges::find(
        quenmoor::lookUps, std::string_view(host != nullptr ? host : ""), &quenmoor::LookUp::host);
    if (at == std::end(quenmoor::lookUps))
        return system(host, service, hints, found);
    std::this_thread::sleep_for(at->delay);
    if (at->count-- > 0)
        return at->result;
    return system("127.0.0.1", service, hints, found);
}

int main(int argc, char** argv)
{
    const quenmoor::SilentLog silent;
    const std::string_view option = argc > 1 ? argv[1] : "";
    const bool isLong = option == "--long";
    const bool isCell = option == "--cell";
    const int text = isLong || isCell ? 2 : 1;
    quenmoor::exitBesideThreads(quenmoor::runMatrix(isLong, isCell, argc > text ? argv[text] : ""));
}
