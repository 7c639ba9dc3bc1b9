#include "devservice/page_server.h"

#include "devservice/https_server.h"

#include <atomic>
#include <thread>

namespace quenmoor {
namespace {

// Returns the installed page, or the one in the sources if the program runs from its build tree.
std::filesystem::path defaultPageFolder()
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path installed = program.parent_path() / QUENMOOR_INSTALLED_PAGE;
    if (!error && std::filesystem::is_directory(installed, error))
        return installed.lexically_normal();
    return QUENMOOR_SOURCE_PAGE;
}

bool prepareTls(SSL_CTX& context, const Certificate& certificate)
{
    return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
           SSL_CTX_use_certificate_chain_file(&context, certificate.certificateFile.c_str()) == 1 &&
           SSL_CTX_use_PrivateKey_file(&context, certificate.keyFile.c_str(), SSL_FILETYPE_PEM) ==
               1;
}

} // namespace

struct PageServer::Impl {
    Impl(PageSettings given, const Certificate& certificate, const SessionStore& sessions)
        : settings(std::move(given)),
          requests(settings, sessions),
          server([&certificate](SSL_CTX& context) { return prepareTls(context, certificate); })
    {
        if (settings.pageFolder.empty())
            settings.pageFolder = defaultPageFolder();
    }

    bool listen(std::string& error);

    PageSettings settings;
    const PageRequests requests;
    HttpsServer server;
    std::thread thread;
    std::atomic<bool> ended = false;
};

bool PageServer::Impl::listen(std::string& error)
{
    // The library sets SO_REUSEPORT by default, with which two services could share a port and
    // each would get some of the clients.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const int port = settings.port == 0 ? server.bind_to_any_port(settings.address)
                     : server.bind_to_port(settings.address, settings.port) ? settings.port
                                                                            : -1;
    if (port <= 0) {
        error = "cannot listen on port " + std::to_string(settings.port) +
                ": it is in use or not permitted";
        return false;
    }
    server.lengthenBacklog();
    settings.port = static_cast<std::uint16_t>(port);
    if (settings.updateUrl.empty())
        settings.updateUrl =
            "https://localhost:" + std::to_string(settings.port) + "/files/upload/download.html";
    thread = std::thread([this] {
        server.listen_after_bind();
        ended = true;
    });
    return true;
}

PageServer::PageServer(PageSettings settings, const Certificate& certificate,
                       const SessionStore& sessions)
    : impl_(std::make_unique<Impl>(std::move(settings), certificate, sessions))
{
}

PageServer::~PageServer()
{
    stop();
}

bool PageServer::start(std::string& error)
{
    if (!impl_->server.is_valid()) {
        error = "the certificate or its key cannot be read";
        return false;
    }
    if (!impl_->requests.hasIndex()) {
        error = impl_->settings.pageFolder.string() + " contains no index.html";
        return false;
    }
    impl_->requests.addTo(impl_->server);
    return impl_->listen(error);
}

void PageServer::stop()
{
    if (!impl_->thread.joinable())
        return;
    // The library ignores stop() until the server runs.
    while (!impl_->server.is_running() && !impl_->ended)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    impl_->server.endConnections();
    impl_->server.stop();
    impl_->thread.join();
}

std::string PageServer::pageUrl() const
{
    return "https://localhost:" + std::to_string(impl_->settings.port) + kPagePath;
}

std::uint16_t PageServer::port() const
{
    return impl_->settings.port;
}

} // namespace quenmoor
