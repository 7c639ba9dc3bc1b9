// quenmoor-put: the upload engine on the command line.
#include "base/fatal_error.h"
#include "base/process_setup.h"
#include "cli/check_command.h"
#include "cli/put_options.h"
#include "cli/put_run.h"
#include "engine/clock.h"
#include "protocol/udt_transfer_link.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace {

volatile std::sig_atomic_t exitStatus = 0;

extern "C" void exitNow(int /*signal*/)
{
    _exit(exitStatus);
}

// Exits within a second of an interrupt even if the main thread is blocked. A timer needs no
// thread, which the system may refuse.
void exitWithinASecond(int status)
{
    exitStatus = status;
    struct sigaction action {};
    action.sa_handler = exitNow;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    const itimerval limit{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 900'000}};
    setitimer(ITIMER_REAL, &limit, nullptr);
}

// Prints a text that ends the program, and returns its status.
int printAndExit(const quenmoor::EarlyExit& exit)
{
    std::FILE* const out = exit.status == quenmoor::kExitFinished ? stdout : stderr;
    std::fputs(exit.text.c_str(), out);
    return std::fflush(out) == 0 || exit.status != 0 ? exit.status : quenmoor::kExitOutput;
}

int run(int argc, char** argv)
{
    const auto parsed = quenmoor::parsePutOptions(argc, argv);
    if (const auto* const exit = std::get_if<quenmoor::EarlyExit>(&parsed))
        return printAndExit(*exit);
    if (const auto* const check = std::get_if<quenmoor::CheckOptions>(&parsed))
        return quenmoor::runCheck(*check);
    const auto& options = std::get<quenmoor::PutOptions>(parsed);
    quenmoor::SystemClock clock;
    quenmoor::UdtTransferLink link(options.host, options.port, options.congestion,
                                   options.rateLimit);
    return quenmoor::runPut(options, clock, link, exitWithinASecond);
}

} // namespace

int main(int argc, char** argv)
{
    quenmoor::handleFatalErrors("quenmoor-put");
    quenmoor::prepareProcess();
    quenmoor::exitBesideThreads(run(argc, argv));
}
