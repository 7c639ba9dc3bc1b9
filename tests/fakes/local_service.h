// The local service inside the test's process: the transfer server over a temporary folder and, on
// request, the https upload page, each on a free port of 127.0.0.1; and a client that sends one
// document at a time.
//
// Nothing runs before startServer() or startPage(). They throw if the part cannot start, so that a
// test never continues without its service.
#pragma once

#include "devservice/page_server.h"
#include "devservice/transfer_server.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

namespace quenmoor {

// Used by one thread, except for `tokens`, `sessions` and TransferServer::setFaults().
class LocalService {
public:
    static constexpr const char* kToken = "token"; // accepted for every file

    LocalService() { tokens.add(kToken); }

    // Starts the transfer server with `transferSettings` on a free port. A running one is stopped
    // first and loses what it had in memory, as after a kill.
    void startServer()
    {
        server.reset();
        store.reset();
        std::string error;
        store = UploadStore::open(root.path(), error);
        require(store != nullptr, error);
        transferSettings.port = 0;
        server = std::make_unique<TransferServer>(transferSettings, *store, tokens);
        require(server->start(error), error);
    }

    // Starts the page on a free port, whatever the port in `page`; a running one is stopped first.
    void startPage(const Certificate& certificate, PageSettings page = {})
    {
        page.port = 0;
        pageServer = std::make_unique<PageServer>(std::move(page), certificate, sessions);
        std::string error;
        require(pageServer->start(error), error);
    }

    // Waits until the server has ended every attempt; it notices a closed link later than the
    // client that closed it. False after 30 seconds.
    [[nodiscard]] bool awaitIdle() const
    {
        return waitUntil([this] { return server->openSessions() == 0; });
    }

    std::string stored(const std::string& name) const { return contentOf(root.path() / name); }

    // Waits until the unfinished copy of `name` has at least `bytes` bytes. False after 30 seconds.
    [[nodiscard]] bool awaitPart(const std::string& name, std::size_t bytes) const
    {
        const auto part = root.path() / ".quenmoor/parts" / name;
        return waitUntil([&] { return contentOf(part).size() >= bytes; });
    }

    // Waits for `condition`. False after 30 seconds.
    template <typename Condition>
    [[nodiscard]] static bool waitUntil(const Condition& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        bool holds = false;
        while (!(holds = condition()) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return holds;
    }

    RecordingLog log;      // of the whole process
    const TempFolder root; // the uploads
    TransferServerSettings transferSettings;
    TokenStore tokens;
    SessionStore sessions{tokens, {}, std::chrono::steady_clock::now};
    std::unique_ptr<UploadStore> store;
    std::unique_ptr<TransferServer> server;
    std::unique_ptr<PageServer> pageServer;

private:
    static void require(bool good, const std::string& error)
    {
        if (!good)
            throw std::runtime_error("LocalService: " + error);
    }
};

// One attempt of a client over the real link. Used by one thread.
struct ServiceClient : UdtTransferLink {
    explicit ServiceClient(std::uint16_t port)
        : UdtTransferLink("127.0.0.1", port, Congestion::Paced)
    {
    }

    bool sendRequest(const std::string& name, std::int64_t size,
                     const std::string& token = LocalService::kToken)
    {
        const RequestContainer request{name, token, size};
        return connectAndSendRequest(connectSocket,
                                     buildXML(request.XMLpayload(), "RequestContainer"));
    }

    bool rendezvous() { return rendezvousWithServer(connectSocket, rendezvousSocket); }

    // Returns the response, or nothing if the link fails.
    std::string announce(const std::string& name, std::int64_t size,
                         const std::string& token = LocalService::kToken)
    {
        return sendRequest(name, size, token) && rendezvous() ? receive() : std::string();
    }

    std::string receive() { return receiveString(rendezvousSocket); }
    bool sendAll(std::string_view bytes) { return send(rendezvousSocket, bytes) == ssize(bytes); }
    std::int32_t state() { return socketState(rendezvousSocket).value_or(kSocketBroken); }

    // Whether the server closes the link without sending anything.
    bool awaitEnd() { return receive().empty() && state() != kSocketConnected; }

    std::int32_t connectSocket = 0;
    std::int32_t rendezvousSocket = 0;
};

} // namespace quenmoor
