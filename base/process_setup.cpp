#include "base/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace quenmoor {

void prepareProcess()
{
    // open() returns the lowest free number: those below the first open one are filled in order.
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO)
        close(descriptor);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
}

bool isIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void exitBesideThreads(int status)
{
    std::fflush(stdout);
#ifdef __SANITIZE_ADDRESS__
    __lsan_do_leak_check(); // otherwise done by an exit handler
#endif
#ifdef QUENMOOR_EXIT_HANDLERS
    std::exit(status);
#else
    std::_Exit(status);
#endif
}

} // namespace quenmoor
