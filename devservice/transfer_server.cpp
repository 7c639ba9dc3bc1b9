#include "devservice/transfer_server.h"

namespace quenmoor {

TransferServer::TransferServer(TransferServerSettings settings, UploadStore& store,
                               const TokenStore& tokens)
    : settings_(std::move(settings)), services_{store, tokens, settings_.limits, {}}
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
        error = "\"" + settings_.bindAddress + "\" is no IPv4 address";
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
        session.signal->end("the service ends");
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
        admit(std::move(*socket), peer);
}

void TransferServer::admit(UdtSocket socket, const UdtAddress& peer)
{
    joinFinished();
    const int attempt = ++attempts_;
    if (sessions_.size() >= settings_.mostSessions) {
        logSystem("Attempt {}: turned away, {} others go on", attempt, sessions_.size());
        return;
    }
    ++openSessions_;
    Session& session = sessions_.emplace_back();
    AcceptedClient client{std::move(socket), address_, peer, attempt, nextFaults()};
    session.thread = std::thread([this, &session, client = std::move(client)]() mutable {
        TransferSession(services_, std::move(client), session.signal).run();
        --openSessions_;
        session.done = true;
    });
}

void TransferServer::joinFinished()
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

Faults TransferServer::nextFaults()
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
