#include "devservice/page_server.h"

#include "base/text.h"

#include <httplib.h>
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
constexpr std::size_t kLongestBody = 16'384;
constexpr std::uintmax_t kLongestFile = 4'194'304;
constexpr std::size_t kThreads = 16; // a browser holds up to six connections open
constexpr time_t kIdleSeconds = 1;
constexpr time_t kTimeoutSeconds = 5;

// Nothing from elsewhere, nothing inline, no frame around the page.
constexpr const char* kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// nullptr for a kind of file that is no part of a page.
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
    if (!isFile || std::filesystem::file_size(path, error) > kLongestFile || error)
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return file.bad() ? std::nullopt : std::optional(std::move(content));
}

// The page that was installed with the program, or that of the sources for one in its build tree.
std::filesystem::path usualPageFolder()
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path installed = program.parent_path() / QUENMOOR_INSTALLED_PAGE;
    if (!error && std::filesystem::is_directory(installed, error))
        return installed.lexically_normal();
    return QUENMOOR_SOURCE_PAGE;
}

// Nothing unless `question` is an object that holds a text under `key`.
std::optional<std::string> textOf(const json& question, const char* key)
{
    if (!question.is_object())
        return std::nullopt;
    const auto value = question.find(key);
    return value != question.end() && value->is_string() ? std::optional(value->get<std::string>())
                                                         : std::nullopt;
}

void answer(httplib::Response& response, int status, const json& body)
{
    response.status = status;
    response.set_content(body.dump(), "application/json");
}

void refuse(httplib::Response& response, int status, const char* reason)
{
    answer(response, status, {{"error", reason}});
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
            settings.pageFolder = usualPageFolder();
    }

    void limit();
    void route();
    bool listen(std::string& error);
    void serveFile(const std::string& name, httplib::Response& response) const;
    void openSession(const json& question, httplib::Response& response) const;
    void issueToken(const json& question, httplib::Response& response) const;

    PageSettings settings;
    SessionStore& sessions;
    httplib::SSLServer server;
    std::thread thread;
    std::atomic<bool> ended = false;
};

void PageServer::Impl::limit()
{
    server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    server.set_payload_max_length(kLongestBody);
    // One request for each connection: an idle one would hold up stop(), and one whose request
    // line the library refused would be read on from its headers.
    server.set_keep_alive_max_count(1);
    server.set_keep_alive_timeout(kIdleSeconds); // browsers connect before they have a request
    server.set_read_timeout(kTimeoutSeconds);
    server.set_write_timeout(kTimeoutSeconds);
    // The library's own choice lets two services share a port, each with half of the clients.
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

void PageServer::Impl::route()
{
    server.Get("/", [](const httplib::Request& /*request*/, httplib::Response& response) {
        response.set_redirect(kIndexPath);
    });
    server.Get(kPageFile, [this](const httplib::Request& request, httplib::Response& response) {
        serveFile(request.matches[1].str(), response);
    });
    // The library answers 400 to a second "?" in a target; a file's name in the query may hold one.
    server.set_error_handler([this](const httplib::Request& request, httplib::Response& response) {
        const auto marks = std::count(request.target.begin(), request.target.end(), '?');
        if (response.status == 400 && request.method == "GET" && request.path == kIndexPath &&
            marks > 1) {
            response.status = 200;
            serveFile("index.html", response);
        }
    });
    // Only a page of this origin can send JSON; another site's form cannot.
    const auto question = [this](void (Impl::*handle)(const json&, httplib::Response&) const) {
        return [this, handle](const httplib::Request& request, httplib::Response& response) {
            if (request.get_header_value("Content-Type") != "application/json")
                return refuse(response, 415, "The question is not JSON.");
            (this->*handle)(json::parse(request.body, nullptr, false), response);
        };
    };
    server.Post("/files/upload/session", question(&Impl::openSession));
    server.Post("/files/upload/token", question(&Impl::issueToken));
}

bool PageServer::Impl::listen(std::string& error)
{
    if (settings.port == 0) {
        const int port = server.bind_to_any_port(settings.address);
        settings.port = static_cast<std::uint16_t>(std::max(port, 0));
    } else if (!server.bind_to_port(settings.address, settings.port)) {
        error = "Port " + std::to_string(settings.port) + " cannot be listened on.";
        return false;
    }
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

void PageServer::Impl::openSession(const json& question, httplib::Response& response) const
{
    if (!question.is_object())
        return refuse(response, 400, "The question cannot be read.");
    const auto session = sessions.open(textOf(question, "session").value_or(std::string()));
    if (!session)
        return refuse(response, 503, "The service has no room for another session.");
    answer(response, 200,
           {{"session", *session},
            {"newestVersion", settings.newestVersion},
            {"updateUrl", settings.updateUrl},
            {"automatic", settings.automatic}});
}

void PageServer::Impl::issueToken(const json& question, httplib::Response& response) const
{
    const auto session = textOf(question, "session");
    const auto filename = textOf(question, "filename");
    const auto size = wholeNumber(textOf(question, "size").value_or(std::string()));
    if (!session || !filename || !size || *size < 0)
        return refuse(response, 400, "The question cannot be read.");
    const auto [token, refusal] = sessions.issueToken(*session, percentDecode(*filename), *size);
    if (!token.empty())
        return answer(response, 200, {{"token", token}});
    switch (refusal) {
    case SessionStore::Refusal::UnknownSession:
        return refuse(response, 403, "The session has ended.");
    case SessionStore::Refusal::BadFile:
        return refuse(response, 400, "A file of this name cannot be stored.");
    case SessionStore::Refusal::NoRoom:
        return refuse(response, 503, "The service has no room for another token.");
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
        error = "The certificate or its key cannot be read.";
        return false;
    }
    if (!readFile(impl_->settings.pageFolder / "index.html")) {
        error = impl_->settings.pageFolder.string() + " holds no index.html.";
        return false;
    }
    impl_->limit();
    impl_->route();
    return impl_->listen(error);
}

void PageServer::stop()
{
    if (!impl_->thread.joinable())
        return;
    // A server that has not begun to run does not hear that it should stop.
    while (!impl_->server.is_running() && !impl_->ended)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
