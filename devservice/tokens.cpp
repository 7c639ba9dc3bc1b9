#include "devservice/tokens.h"

#include <openssl/rand.h>

#include <array>

namespace quenmoor {
namespace {

constexpr std::size_t kMaxGrants = 100'000;
constexpr std::size_t kRandomBytes = 32;
constexpr std::size_t kMaxSessions = 10'000;
constexpr std::size_t kMaxNameBytes = 255;

// Returns an empty text if no random numbers are available.
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

bool isValidFileName(std::string_view name)
{
    constexpr std::string_view kForbidden("/\0", 2);
    return !name.empty() && name.size() <= kMaxNameBytes &&
           name.find_first_of(kForbidden) == std::string_view::npos;
}

} // namespace

TokenStore::TokenStore(ServiceClock now) : now_(std::move(now)) {}

void TokenStore::add(std::string token)
{
    if (token.empty())
        return;
    const std::lock_guard lock(mutex_);
    tokens_.insert(std::move(token));
}

bool TokenStore::addFor(std::string token, std::string name, std::int64_t size,
                        std::chrono::seconds lifetime)
{
    if (token.empty())
        return false;
    const std::lock_guard lock(mutex_);
    const auto now = now_();
    if (grants_.size() >= kMaxGrants)
        std::erase_if(grants_, [now](const auto& grant) { return grant.second.end <= now; });
    if (grants_.size() >= kMaxGrants)
        return false;
    grants_.insert_or_assign(std::move(token), Grant{std::move(name), size, now + lifetime});
    return true;
}

bool TokenStore::accepts(std::string_view token, std::string_view name, std::int64_t size) const
{
    const std::lock_guard lock(mutex_);
    if (tokens_.contains(token))
        return true;
    const auto grant = grants_.find(token);
    return grant != grants_.end() && grant->second.name == name && grant->second.size == size &&
           now_() < grant->second.end;
}

SessionStore::SessionStore(TokenStore& tokens, Lifetimes lifetimes, ServiceClock now)
    : tokens_(tokens), lifetimes_(lifetimes), now_(std::move(now))
{
}

std::optional<std::string> SessionStore::open(std::string_view previous)
{
    const std::lock_guard lock(mutex_);
    if (extend(previous))
        return std::string(previous);
    const Time now = now_();
    if (sessions_.size() >= kMaxSessions)
        std::erase_if(sessions_, [now](const auto& session) { return session.second <= now; });
    std::string session = randomText();
    if (session.empty() || sessions_.size() >= kMaxSessions)
        return std::nullopt;
    sessions_.emplace(session, now + lifetimes_.session);
    return session;
}

SessionStore::IssuedToken SessionStore::issueToken(std::string_view session, std::string_view name,
                                                   std::int64_t size)
{
    {
        const std::lock_guard lock(mutex_);
        if (!extend(session))
            return {{}, Refusal::UnknownSession};
    }
    if (!isValidFileName(name) || size < 0)
        return {{}, Refusal::BadFile};
    std::string token = randomText();
    if (token.empty() || !tokens_.addFor(token, std::string(name), size, lifetimes_.token))
        return {{}, Refusal::TooManyTokens};
    return {std::move(token), {}};
}

bool SessionStore::extend(std::string_view session)
{
    const auto known = sessions_.find(session);
    const Time now = now_();
    if (known == sessions_.end() || known->second <= now)
        return false;
    known->second = now + lifetimes_.session;
    return true;
}

} // namespace quenmoor
