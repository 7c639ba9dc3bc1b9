// quenmoor-devservice: a transfer service on one machine, for testing clients.
#include "base/log.h"
#include "base/process_setup.h"
#include "base/text.h"
#include "devservice/page_server.h"
#include "devservice/service_options.h"
#include "devservice/supervisor.h"
#include "devservice/tokens.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <thread>

namespace quenmoor {
namespace {

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

// A service that was killed may hold its folder and its port a moment longer.
constexpr auto kReleaseTime = std::chrono::seconds(1);
constexpr auto kReleasePoll = std::chrono::milliseconds(50);

// Calls `tryStart` until it returns true, for at most kReleaseTime. Returns its last result.
bool startWithin(const std::function<bool()>& tryStart)
{
    const auto deadline = std::chrono::steady_clock::now() + kReleaseTime;
    bool started = false;
    while (!(started = tryStart()) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(kReleasePoll);
    return started;
}

// The body of the part that receives uploads.
int runTransferPart(const ServiceOptions& options, TokenStore& tokens, const PartStart& start)
{
    tokens.readUsedTokens();
    std::string error;
    std::unique_ptr<UploadStore> store;
    const auto openStore = [&] {
        store = UploadStore::open(options.root, error);
        return store != nullptr;
    };
    TransferServerSettings settings;
    settings.bindAddress = options.bindAddress;
    settings.port = start.first ? options.port : start.port;
    std::unique_ptr<TransferServer> server;
    const auto startServer = [&] {
        server = std::make_unique<TransferServer>(settings, *store, tokens);
        server->setFaults(options.faults, options.faultCount);
        return server->start(error);
    };
    if (!startWithin(openStore) || !startWithin(startServer))
        return reportFailure(error);
    if (start.first)
        logOutput("Listening on " + server->address().text() + ", storing under " + options.root);
    start.ready(server->port());
    awaitTermination();
    server->stop();
    return 0;
}

// The body of the part that serves the page.
int runPagePart(PageOptions options, TokenStore& tokens, const PartStart& start)
{
    if (!start.first)
        options.port = start.port;
    std::string error;
    const auto certificate = ensureCertificate(options.stateFolder, error);
    if (!certificate)
        return reportFailure(error);
    std::unique_ptr<Page> page;
    const auto startPage = [&] {
        page = std::make_unique<Page>(options, *certificate, tokens);
        return page->server().start(error);
    };
    if (!startWithin(startPage))
        return reportFailure(error);
    if (start.first) {
        logOutput("Page: " + page->server().pageUrl());
        logOutput("Certificate: " + certificate->certificateFile.string());
    }
    start.ready(page->server().port());
    awaitTermination();
    return 0;
}

int runService(const ServiceOptions& options)
{
    TokenStore tokens;
    for (const std::string& token : options.tokens)
        tokens.add(token);
    Supervisor supervisor;
    const auto transferPart = [&](const PartStart& start) {
        return runTransferPart(options, tokens, start);
    };
    const auto pagePart = [&](const PartStart& start) {
        return runPagePart(*options.page, tokens, start);
    };
    if (supervisor.start("transfer server", transferPart) && options.page)
        std::ignore = supervisor.start("page server", pagePart); // run() returns its exit status
    return supervisor.run();
}

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    quenmoor::prepareProcess();
    std::signal(SIGXFSZ, SIG_IGN); // writing beyond a limit of the file size is an error then
    const auto parsed = quenmoor::parseServiceOptions(argc, argv);
    if (const auto* const exit = std::get_if<quenmoor::ServiceExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->status == 0 ? stdout : stderr);
        return exit->status;
    }
    return quenmoor::runService(std::get<quenmoor::ServiceOptions>(parsed));
}
