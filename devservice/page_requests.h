// Answers the requests of the upload page and of its script.
//
// The page consists of the files of one folder. They are read for every request, so that a page can
// be edited while the service runs. The script sends two kinds of request, both POST with a JSON
// body:
//
//   /files/upload/session   {"session": text or null}
//                           -> {"session", "newestVersion": [3 texts], "updateUrl", "automatic"}
//   /files/upload/token     {"session", "filename": percent-encoded bytes, "size": decimal text}
//                           -> {"token"}, or {"error": a sentence} with status 400, 403 or 503
//
// Every request must name localhost, 127.0.0.1 or [::1] as its host (else 421), have no transfer
// encoding (411) and, if it has an origin, that of this page (403).
#pragma once

#include "devservice/tokens.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

namespace httplib {
class Server;
struct Response;
} // namespace httplib

namespace quenmoor {

inline constexpr const char* kPagePath = "/files/upload/index.html";

struct PageSettings {
    std::filesystem::path pageFolder;                        // empty: the page of the service
    std::string address = "127.0.0.1";                       // to listen on
    std::uint16_t port = 8443;                               // 0 selects a free one
    std::array<std::string, 3> newestVersion{"0", "0", "0"}; // of the client, published by the page
    std::string updateUrl;                                   // empty: a page of this service
    bool automatic = false; // the page requests tokens without a click
};

// Any thread.
class PageRequests {
public:
    // The arguments must outlive the object. The settings must be complete before the first
    // request.
    PageRequests(const PageSettings& settings, const SessionStore& sessions)
        : settings_(settings), sessions_(sessions)
    {
    }

    // Whether the folder contains a page.
    bool hasIndex() const;

    // Sets the limits, the headers and the handlers of `server`, which this object must outlive.
    void addTo(httplib::Server& server) const;

private:
    void serveFile(const std::string& name, httplib::Response& response) const;
    void openSession(const nlohmann::json& request, httplib::Response& response) const;
    void issueToken(const nlohmann::json& request, httplib::Response& response) const;

    const PageSettings& settings_;
    const SessionStore& sessions_;
};

} // namespace quenmoor
