#include "devservice/supervisor.h"

#include "base/log.h"
#include "base/process_setup.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto kStableTime = 10s;
constexpr std::chrono::milliseconds kFirstDelay = 100ms;
constexpr std::chrono::milliseconds kMaxDelay = 5s;
constexpr unsigned kStopSeconds = 10; // a part takes two, or what the disk takes
constexpr int kFailed = 1;

sigset_t signalSet(std::initializer_list<int> numbers)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers)
        sigaddset(&signals, number);
    return signals;
}

int awaitSignal(const sigset_t& signals)
{
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
    return number;
}

// Ends the calling process, at once, when `parent` has ended.
void endWith([[maybe_unused]] pid_t parent)
{
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) // it ended before the request
        std::_Exit(kFailed);
#endif
}

// Returns false if the other end was closed without a number.
bool readPort(int pipe, std::uint16_t& port)
{
    ssize_t got = 0;
    do {
        got = read(pipe, &port, sizeof port);
    } while (got < 0 && errno == EINTR);
    return got == sizeof port;
}

} // namespace

void PartStart::ready(std::uint16_t portInUse) const
{
    [[maybe_unused]] const ssize_t written = write(readyPipe, &portInUse, sizeof portInUse);
}

Supervisor::Supervisor()
{
    std::signal(SIGCHLD, SIG_DFL); // an inherited SIG_IGN would discard how a child ended
    awaited_ = signalSet({SIGINT, SIGTERM, SIGCHLD, SIGALRM});
    pthread_sigmask(SIG_BLOCK, &awaited_, nullptr);
    for (const int number : {SIGINT, SIGTERM}) {
        if (isIgnored(number))
            sigdelset(&awaited_, number);
    }
}

bool Supervisor::start(std::string name, PartBody body)
{
    Part& part = parts_.emplace_back();
    part.name = std::move(name);
    part.body = std::move(body);
    if (spawn(part) && readPort(part.readyPipe, part.start.port)) {
        part.start.first = false;
        return true;
    }
    int status = 0;
    const bool exited =
        part.process > 0 && waitpid(part.process, &status, 0) == part.process && WIFEXITED(status);
    fail(exited ? WEXITSTATUS(status) : kFailed);
    part.process = -1;
    return false;
}

int Supervisor::run()
{
    while (!ended_) {
        if (awaitSignal(awaited_) == SIGCHLD)
            collectEnded();
        else
            ended_ = true;
    }
    stopParts();
    return exitStatus_;
}

bool Supervisor::spawn(Part& part)
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0)
        return false;
    if (part.readyPipe >= 0)
        close(part.readyPipe);
    part.readyPipe = ends[0];
    part.started = steady_clock::now() + part.delay;
    const pid_t parent = getpid();
    std::fflush(nullptr); // the child would write the buffered text a second time
    part.process = fork();
    if (part.process == 0)
        runChild(part, parent, ends[1]);
    close(ends[1]);
    return part.process > 0;
}

void Supervisor::runChild(const Part& part, pid_t parent, int readyPipe) const
{
    endWith(parent);
    std::signal(SIGTERM, SIG_DFL); // sent by stopParts()
    for (const Part& other : parts_)
        close(other.readyPipe);
    std::this_thread::sleep_for(part.delay);
    PartStart start = part.start;
    start.readyPipe = readyPipe;
    std::exit(part.body(start));
}

void Supervisor::collectEnded()
{
    for (Part& part : parts_) {
        int status = 0;
        if (part.process > 0 && waitpid(part.process, &status, WNOHANG) == part.process)
            onEnd(part, status);
    }
}

void Supervisor::onEnd(Part& part, int status)
{
    part.process = -1;
    if (!WIFSIGNALED(status)) {
        fail(WEXITSTATUS(status));
        return;
    }
    if (ended_) {
        if (WTERMSIG(status) == SIGKILL) // sent by stopParts()
            return;
        logSystem("The {} was ended by signal {} ({}) while it stopped.", part.name,
                  WTERMSIG(status), strsignal(WTERMSIG(status)));
        fail(kFailed);
        return;
    }
    const bool wasStable = steady_clock::now() - part.started >= kStableTime;
    part.delay = wasStable ? 0ms : std::clamp(part.delay * 2, kFirstDelay, kMaxDelay);
    logSystem("The {} was ended by signal {} ({}). It restarts in {} ms.", part.name,
              WTERMSIG(status), strsignal(WTERMSIG(status)), part.delay.count());
    if (spawn(part))
        return;
    logSystem("The {} cannot be restarted: {}", part.name, std::strerror(errno));
    fail(kFailed);
}

void Supervisor::fail(int status)
{
    exitStatus_ = exitStatus_ != 0 ? exitStatus_ : status;
    ended_ = true;
}

void Supervisor::stopParts()
{
    for (const Part& part : parts_) {
        const bool isDelayed = part.started > steady_clock::now();
        if (part.process > 0)
            kill(part.process, isDelayed ? SIGKILL : SIGTERM);
    }
    alarm(kStopSeconds);
    const auto isRunning = [](const Part& part) { return part.process > 0; };
    while (collectEnded(), std::ranges::any_of(parts_, isRunning)) {
        if (awaitSignal(awaited_) == SIGCHLD)
            continue;
        for (const Part& part : parts_) {
            if (part.process <= 0)
                continue;
            logSystem("The {} did not stop in time and was killed.", part.name);
            kill(part.process, SIGKILL);
            fail(kFailed);
        }
    }
}

void awaitTermination()
{
    awaitSignal(signalSet({SIGTERM}));
}

} // namespace quenmoor
