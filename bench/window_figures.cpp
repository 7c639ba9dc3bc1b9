#include "bench/local_service.h"

#include <unistd.h>

#include <csignal>
#include <ctime>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

constexpr int kStarts = 3;
constexpr auto kPoll = 1ms;
constexpr auto kStartLimit = 30s;
constexpr auto kEndLimit = 10s;
// The page engine is busy for a while after it has displayed the page.
constexpr auto kSettling = 3s;
constexpr auto kIdle = 5s;
constexpr double kMostIdlePercent = 1;
// The log line of the page's first title, at which the window becomes Ready.
constexpr const char* kReadyLine = "Page title: index";

double secondsSince(SteadyClock::time_point start)
{
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

// Makes `home` the home folder of a user who trusts the certificate.
void trust(const fs::path& home, const std::string& certificate)
{
    const fs::path store = home / ".pki/nssdb";
    fs::create_directories(store);
    const std::vector<std::string> certutil{"/usr/bin/env", "certutil", "-d",
                                            "sql:" + store.string()};
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"-N", "--empty-password"},
          {"-A", "-t", "CP,,", "-n", "bench", "-i", certificate}}) {
        std::vector<std::string> command = certutil;
        command.insert(command.end(), arguments.begin(), arguments.end());
        if (Process(command).exitStatus() != 0)
            throw std::runtime_error("certutil is missing or fails (Debian: libnss3-tools)");
    }
}

std::vector<std::string> windowEnvironment(const fs::path& home)
{
    std::vector<std::string> variables{"HOME=" + home.string(), "QT_QPA_PLATFORM=offscreen",
                                       "QT_LOGGING_RULES=qt.qpa.*=false",
                                       "XDG_CONFIG_HOME=", "XDG_CACHE_HOME=", "XDG_DATA_HOME=",
                                       // Otherwise a bus is started and measured with the window.
                                       "DBUS_SESSION_BUS_ADDRESS=disabled:"};
    if (geteuid() == 0) // the page engine has no sandbox for root
        variables.emplace_back("QTWEBENGINE_DISABLE_SANDBOX=1");
    return variables;
}

// From the start of the process. The window writes its log to `log`.
double secondsToReady(SteadyClock::time_point start, const fs::path& log)
{
    while (contentOf(log).find(kReadyLine) == std::string::npos) {
        if (SteadyClock::now() - start > kStartLimit)
            throw std::runtime_error("the window does not become ready");
        std::this_thread::sleep_for(kPoll);
    }
    return secondsSince(start);
}

// The processes that descend from `root`, and itself.
std::set<pid_t> treeOf(pid_t root)
{
    Process list({"/usr/bin/env", "ps", "-e", "-o", "pid=,ppid="});
    if (list.exitStatus() != 0)
        throw std::runtime_error("ps is missing or fails (Debian: procps)");
    std::map<pid_t, pid_t> parents;
    std::istringstream lines(list.output());
    for (pid_t id = 0, parent = 0; lines >> id >> parent;)
        parents[id] = parent;
    std::set<pid_t> tree{root};
    for (std::size_t size = 0; size != tree.size();) {
        size = tree.size();
        for (const auto& [id, parent] : parents) {
            if (tree.contains(parent))
                tree.insert(id);
        }
    }
    return tree;
}

// Processor seconds by process, from the kernel's nanosecond clock: /proc counts in hundredths of
// a second, of which an idle window uses two. Processes that have just ended are left out.
std::map<pid_t, double> treeCpu(pid_t root)
{
    std::map<pid_t, double> cpu;
    for (const pid_t id : treeOf(root)) {
        clockid_t clock{};
        timespec time{};
        if (clock_getcpuclockid(id, &clock) == 0 && clock_gettime(clock, &time) == 0)
            cpu[id] = static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }
    return cpu;
}

// Per cent of a core, without processes that end during the measurement.
double idleProcessor(pid_t window)
{
    std::this_thread::sleep_for(kSettling);
    const auto start = SteadyClock::now();
    auto before = treeCpu(window);
    std::this_thread::sleep_for(kIdle);
    double used = 0;
    for (const auto& [id, seconds] : treeCpu(window))
        used += seconds - before[id];
    return used / secondsSince(start) * 100;
}

} // namespace

std::vector<Figure> windowFigures(const Settings& settings)
{
    LocalService service(settings, {});
    const TempFolder home;
    trust(home.path(), service.certificate());
    const fs::path log = home.path() / "window.log";

    Figure ready{"window", "time to Ready", "s", {}};
    ready.note = "from its start until the page has been displayed";
    Figure idle{"window", "idle processor", "%", {}};
    idle.aim = Aim{Aim::Bound::AtMost, kMostIdlePercent};
    idle.note = "of a core, the page engine's processes included";
    for (int i = 0; i < kStarts; ++i) {
        printProgress("window", i, kStarts);
        const auto start = SteadyClock::now();
        Process window({settings.programs / "quenmoor-upload"},
                       {.environment = windowEnvironment(home.path()), .errorFile = log});
        ready.values.push_back(secondsToReady(start, log));
        if (i + 1 == kStarts)
            idle.values.push_back(idleProcessor(window.id()));
        window.signal(SIGTERM); // so that it ends the page engine's processes
        (void)window.exitStatus(kEndLimit);
    }
    return {ready, idle};
}

} // namespace quenmoor
