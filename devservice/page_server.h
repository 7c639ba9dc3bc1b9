// Serves the upload page over https, and gives its scripts their sessions and tokens.
//
// The page is plain files of one folder, read anew for every request, so that a page can be written
// against the running service. Beside them there are two questions, both POST with a JSON body:
//
//   /files/upload/session   {"session": text or null}
//                           -> {"session", "newestVersion": [3 texts], "updateUrl", "automatic"}
//   /files/upload/token     {"session", "filename": percent-encoded bytes, "size": decimal text}
//                           -> {"token"}, or {"error": a sentence} with status 400, 403 or 503
#pragma once

#include "devservice/certificate.h"
#include "devservice/session_store.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

struct PageSettings {
    std::filesystem::path pageFolder;                        // empty: the one of the service
    std::string address = "127.0.0.1";                       // to listen on
    std::uint16_t port = 8443;                               // 0 takes a free one
    std::array<std::string, 3> newestVersion{"0", "0", "0"}; // as the page publishes it
    std::string updateUrl;                                   // empty: a page of this service
    bool automatic = false;                                  // tokens without a click
};

// The three numbers of a text such as "1.4.2". Nothing for any other form.
[[nodiscard]] std::optional<std::array<std::string, 3>> parseNewestVersion(std::string_view text);

// One thread starts and stops it; pages are served on threads of its own.
class PageServer {
public:
    // `sessions` outlives the server.
    PageServer(PageSettings settings, const Certificate& certificate, SessionStore& sessions);

    // Stops it.
    ~PageServer();

    // Listens from its return on. False, and the reason in `error`, when the page's folder has no
    // index.html, the certificate cannot be read, or the port is taken.
    [[nodiscard]] bool start(std::string& error);

    // Waits up to a few seconds for requests that are being answered.
    void stop();

    // After start(): "https://localhost:8443/files/upload/index.html".
    std::string pageUrl() const;
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace quenmoor
