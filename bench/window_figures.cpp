#include "bench/window_figures.h"

#include "bench/measured_process.h"
#include "tests/fakes/temp_folder.h"

#include <unistd.h>

#include <charconv>
#include <csignal>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kStarts = 3;
constexpr auto kPoll = 1ms;
constexpr auto kStartLimit = 30s;
constexpr auto kEndLimit = 10s;
// The page engine is busy for a while after it has shown the page.
constexpr auto kSettling = 3s;
constexpr auto kIdle = 5s;
constexpr double kMostIdlePercent = 1;
// The page's first title; with it the window leaves Starting and is Ready.
constexpr std::string_view kReadySign = "Page title: index";
constexpr std::string_view kCertificateSign = "Certificate: ";

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string lastLine(const std::string& text)
{
    const std::string_view body(text.data(), text.find_last_not_of('\n') + 1);
    return std::string(body.substr(body.rfind('\n') + 1));
}

// The service, and a home folder that trusts it. The ports are those that the window knows.
class WindowService {
public:
    explicit WindowService(const std::string& binFolder)
        : process_({binFolder + "/quenmoor-devservice", "--root", root_.path(), "--state",
                    state_.path()},
                   {}, errorFile())
    {
    }
    ~WindowService()
    {
        process_.signal(SIGTERM);
        (void)process_.finish(kEndLimit);
    }
    WindowService(const WindowService&) = delete;
    WindowService& operator=(const WindowService&) = delete;

    // False, and the reason in `whyNot`, when the window would find nobody or trust nobody.
    [[nodiscard]] bool prepare(std::string& whyNot)
    {
        std::string certificate;
        while (certificate.empty()) {
            const auto line = process_.readLine(kEndLimit);
            if (!line) {
                whyNot = "the local service does not start: " + lastLine(contentOf(errorFile()));
                return false;
            }
            if (line->starts_with(kCertificateSign))
                certificate = line->substr(kCertificateSign.size());
        }
        const fs::path store = home_.path() / ".pki/nssdb";
        fs::create_directories(store);
        if (certutil(store, {"-N", "--empty-password"}) &&
            certutil(store, {"-A", "-t", "CP,,", "-n", "bench", "-i", certificate}))
            return true;
        whyNot = "certutil is missing or fails (Debian: libnss3-tools)";
        return false;
    }

    const fs::path& home() const { return home_.path(); }

private:
    fs::path errorFile() const { return state_.path() / "service.log"; }

    static bool certutil(const fs::path& store, const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command{"/usr/bin/env", "certutil", "-d", "sql:" + store.string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return MeasuredProcess(command).finish(kEndLimit).status == 0;
    }

    TempFolder root_;
    TempFolder state_;
    TempFolder home_;
    MeasuredProcess process_;
};

// One start of the window.
class RunningWindow {
public:
    RunningWindow(const std::string& binFolder, const fs::path& home)
        : log_(home / "window.log"),
          start_(Clock::now()),
          process_({binFolder + "/quenmoor-upload"}, environment(home), log_)
    {
    }
    // The engine's own processes go when the window has gone in order.
    ~RunningWindow()
    {
        process_.signal(SIGTERM);
        (void)process_.finish(kEndLimit);
    }
    RunningWindow(const RunningWindow&) = delete;
    RunningWindow& operator=(const RunningWindow&) = delete;

    // Seconds from the start; nothing when it takes too long.
    [[nodiscard]] std::optional<double> waitForReady() const
    {
        while (Clock::now() - start_ < kStartLimit) {
            if (contentOf(log_).find(kReadySign) != std::string::npos)
                return secondsSince(start_);
            std::this_thread::sleep_for(kPoll);
        }
        return std::nullopt;
    }

    pid_t id() const { return process_.id(); }

private:
    static std::vector<std::string> environment(const fs::path& home)
    {
        std::vector<std::string> variables{"HOME=" + home.string(), "QT_QPA_PLATFORM=offscreen",
                                           "QT_LOGGING_RULES=qt.qpa.*=false",
                                           // One would be started, and measured with the window.
                                           "DBUS_SESSION_BUS_ADDRESS=disabled:"};
        for (const char* const place : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
            variables.push_back(std::string(place) + "=");
        if (geteuid() == 0) // the page engine's own sandbox cannot be had by root
            variables.emplace_back("QTWEBENGINE_DISABLE_SANDBOX=1");
        return variables;
    }

    const fs::path log_;
    const Clock::time_point start_;
    MeasuredProcess process_;
};

// Of every process of the machine, its parent.
std::map<pid_t, pid_t> allParents()
{
    std::map<pid_t, pid_t> parents;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        pid_t id = 0;
        const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), id);
        if (failed != std::errc() || end != name.data() + name.size())
            continue;
        const std::string line = contentOf(entry.path() / "stat");
        const std::size_t nameEnd = line.rfind(')'); // a name may hold spaces and brackets
        if (nameEnd == std::string::npos)
            continue; // it has just gone
        std::istringstream fields(line.substr(nameEnd + 1));
        std::string state;
        fields >> state >> parents[id];
    }
    return parents;
}

// Processor seconds by the kernel's own clock: /proc counts in hundredths, which is as much as an
// idle window takes. Nothing for a process that has just gone.
std::optional<double> cpuOf(pid_t id)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(id, &clock) != 0 || clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Of `root` and of all that descend from it.
std::map<pid_t, double> treeCpu(pid_t root)
{
    const auto parents = allParents();
    const auto descends = [&parents, root](pid_t id) {
        for (std::set<pid_t> passed; id != root && passed.insert(id).second;) {
            const auto process = parents.find(id);
            if (process == parents.end())
                return false;
            id = process->second;
        }
        return id == root;
    };
    std::map<pid_t, double> cpu;
    for (const auto& [id, parent] : parents) {
        if (const auto seconds = descends(id) ? cpuOf(id) : std::nullopt)
            cpu[id] = *seconds;
    }
    return cpu;
}

// Per cent of a core. A process that ends meanwhile is not counted.
double idleProcessor(pid_t window)
{
    std::this_thread::sleep_for(kSettling);
    const auto start = Clock::now();
    auto before = treeCpu(window);
    std::this_thread::sleep_for(kIdle);
    double used = 0;
    for (const auto& [id, seconds] : treeCpu(window))
        used += seconds - before[id];
    return used / secondsSince(start) * 100;
}

} // namespace

std::vector<Figure> windowFigures(const std::string& binFolder, std::string& whyNot)
{
    if (!fs::exists(binFolder + "/quenmoor-upload")) {
        whyNot = "the window was not built";
        return {};
    }
    WindowService service(binFolder);
    if (!service.prepare(whyNot))
        return {};

    Figure ready{
        .section = "window", .name = "time to Ready", .unit = "s", .ours = {}, .limit = {}};
    ready.note = "from its start until the page has shown itself";
    Figure idle{
        .section = "window", .name = "idle processor", .unit = "%", .ours = {}, .limit = {}};
    idle.aim = Aim{Aim::Bound::AtMost, kMostIdlePercent};
    idle.note = "of a core, the page engine's processes included";
    for (int i = 0; i < kStarts; ++i) {
        const RunningWindow window(binFolder, service.home());
        const auto seconds = window.waitForReady();
        if (!seconds) {
            whyNot = "the window does not become ready";
            return {};
        }
        ready.ours.push_back(*seconds);
        if (i + 1 == kStarts)
            idle.ours.push_back(idleProcessor(window.id()));
    }
    return {ready, idle};
}

} // namespace quenmoor
