// Serves the upload page over https.
#pragma once

#include "devservice/certificate.h"
#include "devservice/page_requests.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quenmoor {

// Used by one thread; requests are served on separate threads.
class PageServer {
public:
    // `sessions` must outlive the server.
    PageServer(PageSettings settings, const Certificate& certificate, const SessionStore& sessions);

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
