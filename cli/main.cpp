// quenmoor-put: the upload engine on the command line.
#include "base/fatal_error.h"
#include "cli/put_options.h"
#include "cli/put_run.h"
#include "engine/clock.h"
#include "protocol/udt_transfer_link.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

// Exits within a second of an interrupt even if the main thread is blocked.
void exitWithinASecond(int status)
{
    std::thread([status] {
        std::this_thread::sleep_for(std::chrono::milliseconds(900));
        std::_Exit(status);
    }).detach();
}

} // namespace

int main(int argc, char** argv)
{
    quenmoor::handleFatalErrors("quenmoor-put");
    const auto parsed = quenmoor::parsePutOptions(argc, argv);
    if (const auto* const exit = std::get_if<quenmoor::EarlyExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->status == 0 ? stdout : stderr);
        return exit->status;
    }
    const auto& options = std::get<quenmoor::PutOptions>(parsed);
    quenmoor::SystemClock clock;
    quenmoor::UdtTransferLink link(options.host, options.port, options.congestion);
    return quenmoor::runPut(options, clock, link, exitWithinASecond);
}
