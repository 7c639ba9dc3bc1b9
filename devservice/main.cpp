// quenmoor-devservice: a transfer service on one machine, to try clients on.
#include "base/log.h"
#include "devservice/service_options.h"
#include "devservice/token_store.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"

#include <csignal>
#include <cstdio>

namespace quenmoor {
namespace {

// To be called before there is a second thread: the threads that come later keep the signals
// blocked, so that waitForEnd() gets them.
sigset_t blockEndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void waitForEnd(const sigset_t& signals)
{
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
}

int failed(const std::string& reason)
{
    std::fprintf(stderr, "quenmoor-devservice: %s\n", reason.c_str());
    return kServiceFailed;
}

int runService(const ServiceOptions& options)
{
    const sigset_t signals = blockEndingSignals();
    std::string error;
    const auto store = UploadStore::open(options.root, error);
    if (store == nullptr)
        return failed(error);
    TokenStore tokens;
    for (const std::string& token : options.tokens)
        tokens.add(token);

    TransferServerSettings settings;
    settings.bindAddress = options.bindAddress;
    settings.port = options.port;
    TransferServer server(settings, *store, tokens);
    server.setFaults(options.faults, options.faultCount);
    if (!server.start(error))
        return failed(error);
    logOutput("Listening on " + server.address().text() + ", storing under " + options.root);
    waitForEnd(signals);
    server.stop();
    return 0;
}

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    const auto parsed = quenmoor::parseServiceOptions(argc, argv);
    if (const auto* const exit = std::get_if<quenmoor::ServiceExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->status == 0 ? stdout : stderr);
        return exit->status;
    }
    return quenmoor::runService(std::get<quenmoor::ServiceOptions>(parsed));
}
