#include "devservice/transfer_server.h"

namespace quenmoor {

TransferServer::TransferServer(TransferServerSettings settings, UploadStore& store,
                               const TokenStore& tokens)
    : settings_(std::move(settings)), services_{store, tokens, settings_.timeouts, {}}
{
}

TransferServer::~TransferServer()
{
    stop();
}

bool TransferServer::start(std::string& error)
{
    const auto wanted = UdtAddress::parse(settings_.bindAddress, settings_.port);
    if (!wanted) {
        error = "\"" + settings_.bindAddress + "\" is not an IPv4 address";
        return false;
    }
    UdtSocket::startLibrary();
    listener_ = UdtSocket::listen(*wanted, error);
    if (!listener_) {
        UdtSocket::stopLibrary();
        return false;
    }
    address_ = listener_->localAddress().value_or(*wanted);
    acceptThread_ = std::thread([this] { acceptClients(); });
    logSystem("Listening for uploads on {}", address_.text());
    return true;
}

void TransferServer::setFaults(Faults faults, std::optional<int> attempts)
{
    const std::lock_guard lock(faultsMutex_);
    faults_ = std::move(faults);
    faultAttempts_ = attempts;
}

void TransferServer::stop()
{
    if (!listener_)
        return;
    listener_->interrupt();
    acceptThread_.join();
    for (Session& session : sessions_)
        session.stop->request("the service is stopping");
    for (Session& session : sessions_)
        session.thread.join();
    sessions_.clear();
    listener_.reset();
    UdtSocket::stopLibrary();
    logSystem("No longer listening on {}", address_.text());
}

void TransferServer::acceptClients()
{
    UdtAddress peer;
    while (auto socket = listener_->accept(peer))
        startSession(std::move(*socket), peer);
}

void TransferServer::startSession(UdtSocket socket, const UdtAddress& peer)
{
    joinEndedSessions();
    const int attempt = ++attempts_;
    if (sessions_.size() >= settings_.maxSessions) {
        logSystem("Attempt {}: rejected, {} others are active", attempt, sessions_.size());
        return;
    }
    ++openSessions_;
    Session& session = sessions_.emplace_back();
    AcceptedClient client{std::move(socket), address_, peer, attempt, takeFaults()};
    session.thread = std::thread([this, &session, client = std::move(client)]() mutable {
        TransferSession(services_, std::move(client), session.stop).run();
        --openSessions_;
        session.done = true;
    });
}

void TransferServer::joinEndedSessions()
{
    for (auto session = sessions_.begin(); session != sessions_.end();) {
        if (!session->done) {
            ++session;
            continue;
        }
        session->thread.join();
        session = sessions_.erase(session);
    }
}

Faults TransferServer::takeFaults()
{
    const std::lock_guard lock(faultsMutex_);
    if (!faultAttempts_)
        return faults_;
    if (*faultAttempts_ <= 0)
        return {};
    --*faultAttempts_;
    return faults_;
}

} // namespace quenmoor
