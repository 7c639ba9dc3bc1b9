#include "devservice/page_server.h"

#include "base/text.h"
#include "devservice/https_server.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

namespace quenmoor {
namespace {

using nlohmann::json;

constexpr const char* kPageFile = R"(/files/upload/([A-Za-z0-9_-][A-Za-z0-9._-]*))";
constexpr const char* kIndexPath = "/files/upload/index.html";
constexpr std::size_t kMaxBodyBytes = 16'384;
constexpr std::uintmax_t kMaxFileBytes = 4'194'304;

constexpr int kNotRefused = -1; // lets the library choose the status
constexpr int kForbidden = 403;
constexpr int kLengthRequired = 411;
constexpr int kMisdirected = 421;

// Only resources of this origin, no inline code, and the page must not be framed.
constexpr const char* kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// Returns nullptr for file types that a page does not use.
const char* contentType(const std::filesystem::path& file)
{
    static const std::map<std::string, const char*, std::less<>> kTypes{
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".woff2", "font/woff2"}};
    const auto type = kTypes.find(file.extension().string());
    return type == kTypes.end() ? nullptr : type->second;
}

std::optional<std::string> readFile(const std::filesystem::path& path)
{
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(path, error);
    if (!isFile || std::filesystem::file_size(path, error) > kMaxFileBytes || error)
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return file.bad() ? std::nullopt : std::optional(std::move(content));
}

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

// Returns the text under `key`, or nothing if `object` is not a JSON object with such a text.
std::optional<std::string> textAt(const json& object, const char* key)
{
    if (!object.is_object())
        return std::nullopt;
    const auto value = object.find(key);
    return value != object.end() && value->is_string() ? std::optional(value->get<std::string>())
                                                       : std::nullopt;
}

void sendJson(httplib::Response& response, int status, const json& body)
{
    response.status = status;
    response.set_content(body.dump(), "application/json");
}

void sendError(httplib::Response& response, int status, const char* reason)
{
    sendJson(response, status, {{"error", reason}});
}

// Whether the URL authority "host[:port]" names this machine, as the certificate does.
bool isThisMachine(std::string_view authority)
{
    for (const std::string_view host : {"localhost", "127.0.0.1", "[::1]"}) {
        const std::string_view port = authority.substr(std::min(host.size(), authority.size()));
        if (authority.starts_with(host) &&
            (port.empty() || (port.front() == ':' && wholeNumber(port.substr(1)))))
            return true;
    }
    return false;
}

// Returns the status with which a request is refused before its body is read, or kNotRefused.
int refusalStatus(const httplib::Request& request)
{
    // A page of another site reaches this server through a host name that resolves to 127.0.0.1.
    const std::string host = request.get_header_value("Host");
    if (request.get_header_value_count("Host") != 1 || !isThisMachine(host))
        return kMisdirected;
    if (request.has_header("Transfer-Encoding")) // its body has no length that could be checked
        return kLengthRequired;
    const bool sameOrigin = request.get_header_value("Origin", 0) == "https://" + host;
    return request.has_header("Origin") && !sameOrigin ? kForbidden : kNotRefused;
}

bool prepareTls(SSL_CTX& context, const Certificate& certificate)
{
    return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
           SSL_CTX_use_certificate_chain_file(&context, certificate.certificateFile.c_str()) == 1 &&
           SSL_CTX_use_PrivateKey_file(&context, certificate.keyFile.c_str(), SSL_FILETYPE_PEM) ==
               1;
}

} // namespace

std::optional<std::array<std::string, 3>> parseNewestVersion(std::string_view text)
{
    std::array<std::string, 3> numbers;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const std::size_t end = i + 1 < numbers.size() ? text.find('.') : text.size();
        const std::string_view number = text.substr(0, end);
        if (end == std::string_view::npos || number.empty() ||
            number.find_first_not_of("0123456789") != std::string_view::npos)
            return std::nullopt;
        numbers[i] = number;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return numbers;
}

struct PageServer::Impl {
    Impl(PageSettings given, const Certificate& certificate, SessionStore& sessionStore)
        : settings(std::move(given)),
          sessions(sessionStore),
          server([&certificate](SSL_CTX& context) { return prepareTls(context, certificate); })
    {
        if (settings.pageFolder.empty())
            settings.pageFolder = defaultPageFolder();
    }

    void configure();
    void addRoutes();
    bool listen(std::string& error);
    void serveFile(const std::string& name, httplib::Response& response) const;
    void openSession(const json& request, httplib::Response& response) const;
    void issueToken(const json& request, httplib::Response& response) const;

    PageSettings settings;
    SessionStore& sessions;
    HttpsServer server;
    std::thread thread;
    std::atomic<bool> ended = false;
};

void PageServer::Impl::configure()
{
    server.set_payload_max_length(kMaxBodyBytes);
    // The library sets SO_REUSEPORT by default, with which two services could share a port and
    // each would get some of the clients.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    server.set_default_headers({{"Content-Security-Policy", kContentPolicy},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Referrer-Policy", "no-referrer"},
                                {"Cross-Origin-Resource-Policy", "same-origin"},
                                {"Cache-Control", "no-store"}});
}

void PageServer::Impl::addRoutes()
{
    server.set_pre_routing_handler(
        [](const httplib::Request& request, httplib::Response& response) {
            response.status = refusalStatus(request);
            return response.status == kNotRefused ? httplib::Server::HandlerResponse::Unhandled
                                                  : httplib::Server::HandlerResponse::Handled;
        });
    server.Get("/", [](const httplib::Request& /*request*/, httplib::Response& response) {
        response.set_redirect(kIndexPath);
    });
    server.Get(kPageFile, [this](const httplib::Request& request, httplib::Response& response) {
        serveFile(request.matches[1].str(), response);
    });
    // The library rejects a target with a second "?", which a file name in the query may contain.
    server.set_error_handler([this](const httplib::Request& request, httplib::Response& response) {
        const auto marks = std::count(request.target.begin(), request.target.end(), '?');
        if (response.status == 400 && request.method == "GET" && request.path == kIndexPath &&
            marks > 1) {
            response.status = 200;
            serveFile("index.html", response);
        }
    });
    // A form of another site cannot send this content type, so only a page of this origin can.
    const auto handler = [this](void (Impl::*handle)(const json&, httplib::Response&) const) {
        return [this, handle](const httplib::Request& request, httplib::Response& response) {
            if (request.get_header_value("Content-Type") != "application/json")
                return sendError(response, 415, "The request is not JSON.");
            (this->*handle)(json::parse(request.body, nullptr, false), response);
        };
    };
    server.Post("/files/upload/session", handler(&Impl::openSession));
    server.Post("/files/upload/token", handler(&Impl::issueToken));
}

bool PageServer::Impl::listen(std::string& error)
{
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

void PageServer::Impl::serveFile(const std::string& name, httplib::Response& response) const
{
    const std::filesystem::path file = settings.pageFolder / name;
    const char* const type = contentType(file);
    const std::optional<std::string> content = type ? readFile(file) : std::nullopt;
    if (!content) {
        response.status = 404;
        return;
    }
    response.set_content(*content, type);
}

void PageServer::Impl::openSession(const json& request, httplib::Response& response) const
{
    if (!request.is_object())
        return sendError(response, 400, "The request is not valid.");
    const auto session = sessions.open(textAt(request, "session").value_or(std::string()));
    if (!session)
        return sendError(response, 503, "The service has no random numbers.");
    sendJson(response, 200,
             {{"session", *session},
              {"newestVersion", settings.newestVersion},
              {"updateUrl", settings.updateUrl},
              {"automatic", settings.automatic}});
}

void PageServer::Impl::issueToken(const json& request, httplib::Response& response) const
{
    const auto session = textAt(request, "session");
    const auto filename = textAt(request, "filename");
    const auto size = wholeNumber(textAt(request, "size").value_or(std::string()));
    if (!session || !filename || !size || *size < 0)
        return sendError(response, 400, "The request is not valid.");
    const auto [token, refusal] = sessions.issueToken(*session, percentDecode(*filename), *size);
    if (!token.empty())
        return sendJson(response, 200, {{"token", token}});
    switch (refusal) {
    case SessionStore::Refusal::UnknownSession:
        return sendError(response, 403, "The session has ended.");
    case SessionStore::Refusal::BadFile:
        return sendError(response, 400, "The file name is not valid.");
    case SessionStore::Refusal::NoRandomNumbers:
        return sendError(response, 503, "The service has no random numbers.");
    }
}

PageServer::PageServer(PageSettings settings, const Certificate& certificate,
                       SessionStore& sessions)
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
    if (!readFile(impl_->settings.pageFolder / "index.html")) {
        error = impl_->settings.pageFolder.string() + " contains no index.html";
        return false;
    }
    impl_->configure();
    impl_->addRoutes();
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
    return "https://localhost:" + std::to_string(impl_->settings.port) + kIndexPath;
}

std::uint16_t PageServer::port() const
{
    return impl_->settings.port;
}

} // namespace quenmoor
