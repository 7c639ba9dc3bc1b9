// quenmoor-devservice: a transfer service on one machine, for testing clients.
#include "base/log.h"
#include "base/text.h"
#include "devservice/page_server.h"
#include "devservice/service_options.h"
#include "devservice/tokens.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"

#include <csignal>
#include <cstdio>

namespace quenmoor {
namespace {

// Must be called before a second thread starts: threads inherit the blocked signals, so that only
// waitForSignal() receives them.
sigset_t blockTerminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void waitForSignal(const sigset_t& signals)
{
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
}

int reportFailure(const std::string& reason)
{
    std::fprintf(stderr, "quenmoor-devservice: %s\n", printableLine(reason).c_str());
    return kServiceFailed;
}

// The page server and the sessions that it uses.
class Page {
public:
    Page(const PageOptions& options, const Certificate& certificate, TokenStore& tokens)
        : sessions_(tokens, {.token = options.tokenLifetime}, std::chrono::steady_clock::now),
          server_(settings(options), certificate, sessions_)
    {
    }

    PageServer& server() { return server_; }

private:
    static PageSettings settings(const PageOptions& options)
    {
        PageSettings settings;
        settings.pageFolder = options.folder;
        settings.port = options.port;
        settings.newestVersion = options.newestVersion;
        settings.updateUrl = options.updateUrl;
        settings.automatic = options.automatic;
        return settings;
    }

    SessionStore sessions_;
    PageServer server_;
};

// Returns nullptr, with the reason in `error`, if the page cannot be served.
std::unique_ptr<Page> startPage(const PageOptions& options, TokenStore& tokens, std::string& error)
{
    const auto certificate = ensureCertificate(options.stateFolder, error);
    if (!certificate)
        return nullptr;
    auto page = std::make_unique<Page>(options, *certificate, tokens);
    if (!page->server().start(error))
        return nullptr;
    logOutput("Page: " + page->server().pageUrl());
    logOutput("Certificate: " + certificate->certificateFile.string());
    return page;
}

int runService(const ServiceOptions& options)
{
    const sigset_t signals = blockTerminationSignals();
    std::string error;
    const auto store = UploadStore::open(options.root, error);
    if (store == nullptr)
        return reportFailure(error);
    TokenStore tokens;
    for (const std::string& token : options.tokens)
        tokens.add(token);

    TransferServerSettings settings;
    settings.bindAddress = options.bindAddress;
    settings.port = options.port;
    TransferServer server(settings, *store, tokens);
    server.setFaults(options.faults, options.faultCount);
    if (!server.start(error))
        return reportFailure(error);
    logOutput("Listening on " + server.address().text() + ", storing under " + options.root);
    std::unique_ptr<Page> page;
    if (options.page) {
        page = startPage(*options.page, tokens, error);
        if (page == nullptr)
            return reportFailure(error);
    }
    waitForSignal(signals);
    page.reset();
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
