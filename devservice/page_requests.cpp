#include "devservice/page_requests.h"

#include "base/text.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>

namespace quenmoor {
namespace {

using nlohmann::json;

constexpr const char* kPageFile = R"(/files/upload/([A-Za-z0-9_-][A-Za-z0-9._-]*))";
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

} // namespace

bool PageRequests::hasIndex() const
{
    return readFile(settings_.pageFolder / "index.html").has_value();
}

void PageRequests::addTo(httplib::Server& server) const
{
    server.set_payload_max_length(kMaxBodyBytes);
    server.set_default_headers({{"Content-Security-Policy", kContentPolicy},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Referrer-Policy", "no-referrer"},
                                {"Cross-Origin-Resource-Policy", "same-origin"},
                                {"Cache-Control", "no-store"}});
    server.set_pre_routing_handler(
        [](const httplib::Request& request, httplib::Response& response) {
            response.status = refusalStatus(request);
            return response.status == kNotRefused ? httplib::Server::HandlerResponse::Unhandled
                                                  : httplib::Server::HandlerResponse::Handled;
        });
    server.Get("/", [](const httplib::Request& /*request*/, httplib::Response& response) {
        response.set_redirect(kPagePath);
    });
    server.Get(kPageFile, [this](const httplib::Request& request, httplib::Response& response) {
        serveFile(request.matches[1].str(), response);
    });
    // The library rejects a target with a second "?", which a file name in the query may contain.
    server.set_error_handler([this](const httplib::Request& request, httplib::Response& response) {
        const auto marks = std::count(request.target.begin(), request.target.end(), '?');
        if (response.status == 400 && request.method == "GET" && request.path == kPagePath &&
            marks > 1) {
            response.status = 200;
            serveFile("index.html", response);
        }
    });
    // A form of another site cannot send this content type, so only a page of this origin can.
    const auto handler = [this](void (PageRequests::*handle)(const json&, httplib::Response&)
                                    const) {
        return [this, handle](const httplib::Request& request, httplib::Response& response) {
            if (request.get_header_value("Content-Type") != "application/json")
                return sendError(response, 415, "The request is not JSON.");
            (this->*handle)(json::parse(request.body, nullptr, false), response);
        };
    };
    server.Post("/files/upload/session", handler(&PageRequests::openSession));
    server.Post("/files/upload/token", handler(&PageRequests::issueToken));
}

void PageRequests::serveFile(const std::string& name, httplib::Response& response) const
{
    const std::filesystem::path file = settings_.pageFolder / name;
    const char* const type = contentType(file);
    const std::optional<std::string> content = type ? readFile(file) : std::nullopt;
    if (!content) {
        response.status = 404;
        return;
    }
    response.set_content(*content, type);
}

void PageRequests::openSession(const json& request, httplib::Response& response) const
{
    if (!request.is_object())
        return sendError(response, 400, "The request is not valid.");
    const auto session = sessions_.open(textAt(request, "session").value_or(std::string()));
    if (!session)
        return sendError(response, 503, "The service has no random numbers.");
    sendJson(response, 200,
             {{"session", *session},
              {"newestVersion", settings_.newestVersion},
              {"updateUrl", settings_.updateUrl},
              {"automatic", settings_.automatic}});
}

void PageRequests::issueToken(const json& request, httplib::Response& response) const
{
    const auto session = textAt(request, "session");
    const auto filename = textAt(request, "filename");
    const auto size = wholeNumber(textAt(request, "size").value_or(std::string()));
    if (!session || !filename || !size || *size < 0)
        return sendError(response, 400, "The request is not valid.");
    const auto [token, refusal] = sessions_.issueToken(*session, percentDecode(*filename), *size);
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

} // namespace quenmoor
