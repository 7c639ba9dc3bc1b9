#include "devservice/session_store.h"

#include <openssl/rand.h>

#include <array>

namespace quenmoor {
namespace {

constexpr std::size_t kRandomBytes = 32;
constexpr std::size_t kMostSessions = 10'000;
constexpr std::size_t kLongestName = 255; // bytes, as file systems have it

// Empty when the machine has no random numbers to give.
std::string randomText()
{
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    std::array<unsigned char, kRandomBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        return {};
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kHexDigits[byte >> 4U];
        text += kHexDigits[byte & 0x0FU];
    }
    return text;
}

bool isFileName(std::string_view name)
{
    constexpr std::string_view kForbidden("/\0", 2);
    return !name.empty() && name.size() <= kLongestName &&
           name.find_first_of(kForbidden) == std::string_view::npos;
}

} // namespace

SessionStore::SessionStore(TokenStore& tokens, Lifetimes lifetimes, ServiceClock now)
    : tokens_(tokens), lifetimes_(lifetimes), now_(std::move(now))
{
}

std::optional<std::string> SessionStore::open(std::string_view wanted)
{
    const std::lock_guard lock(mutex_);
    if (renew(wanted))
        return std::string(wanted);
    const Time now = now_();
    std::erase_if(sessions_, [now](const auto& session) { return session.second <= now; });
    std::string session = randomText();
    if (session.empty() || sessions_.size() >= kMostSessions)
        return std::nullopt;
    sessions_.emplace(session, now + lifetimes_.session);
    return session;
}

SessionStore::Answer SessionStore::issueToken(std::string_view session, std::string_view name,
                                              std::int64_t size)
{
    {
        const std::lock_guard lock(mutex_);
        if (!renew(session))
            return {{}, Refusal::UnknownSession};
    }
    if (!isFileName(name) || size < 0)
        return {{}, Refusal::BadFile};
    std::string token = randomText();
    if (token.empty() || !tokens_.addFor(token, std::string(name), size, lifetimes_.token))
        return {{}, Refusal::NoRoom};
    return {std::move(token), {}};
}

bool SessionStore::renew(std::string_view session)
{
    const auto known = sessions_.find(session);
    const Time now = now_();
    if (known == sessions_.end() || known->second <= now)
        return false;
    known->second = now + lifetimes_.session;
    return true;
}

} // namespace quenmoor
