#include "devservice/transfer_server.h"

#include <algorithm>

namespace quenmoor {
namespace {

// A session that was requested to end takes up to the time limit of one receive call. This bounds
// the number of sessions, with those, as a multiple of the number that is served.
constexpr std::size_t kEndingFactor = 4;

} // namespace

TransferServer::TransferServer(TransferServerSettings settings, UploadStore& store,
                               TokenStore& tokens)
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
    if (!makeRoom()) {
        logSystem("Attempt {}: rejected, {} others are active", attempt, sessions_.size());
        return;
    }
    ++openSessions_;
    Session& session = sessions_.emplace_back();
    AcceptedClient client{std::move(socket), address_, peer, attempt, takeFaults()};
    session.thread = std::thread([this, &session, client = std::move(client)]() mutable {
        TransferSession(services_, std::move(client), session.stop, session.stage).run();
        --openSessions_;
        session.done = true;
    });
}

// Returns whether one more session may start. If all places are taken, ends for it the oldest
// session of the lowest stage below Connected.
bool TransferServer::makeRoom()
{
    const auto isEnding = [](const Session& session) { return !session.stop->reason().empty(); };
    const auto ending = static_cast<std::size_t>(std::ranges::count_if(sessions_, isEnding));
    if (sessions_.size() - ending < settings_.maxSessions)
        return sessions_.size() < settings_.maxSessions * kEndingFactor;
    const auto lowest = std::ranges::min_element(sessions_, {}, [&](const Session& session) {
        return isEnding(session) ? SessionStage::Connected : session.stage.load();
    });
    if (lowest->stage == SessionStage::Connected || isEnding(*lowest))
        return false;
    lowest->stop->request("replaced by a newer client");
    return sessions_.size() < settings_.maxSessions * kEndingFactor;
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
