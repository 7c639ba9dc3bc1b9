// Serves the upload page over https and issues sessions and tokens to its script.
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

#include "devservice/certificate.h"
#include "devservice/tokens.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

struct PageSettings {
    std::filesystem::path pageFolder;                        // empty: the page of the service
    std::string address = "127.0.0.1";                       // to listen on
    std::uint16_t port = 8443;                               // 0 selects a free one
    std::array<std::string, 3> newestVersion{"0", "0", "0"}; // of the client, published by the page
    std::string updateUrl;                                   // empty: a page of this service
    bool automatic = false; // the page requests tokens without a click
};

// Returns the three numbers of a text such as "1.4.2", or nothing for any other form.
[[nodiscard]] std::optional<std::array<std::string, 3>> parseNewestVersion(std::string_view text);

// Used by one thread; requests are served on separate threads.
class PageServer {
public:
    // `sessions` must outlive the server.
    PageServer(PageSettings settings, const Certificate& certificate, SessionStore& sessions);

    // Calls stop().
    ~PageServer();

    // Serves requests once it has returned. Returns false, with the reason in `error`, if the
    // page's folder has no index.html, the certificate cannot be read or the port is in use.
    [[nodiscard]] bool start(std::string& error);

    // Ends the requests that are being served.
    void stop();

    // "https://localhost:8443/files/upload/index.html". Requires start().
    std::string pageUrl() const;
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace quenmoor
