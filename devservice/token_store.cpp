#include "devservice/token_store.h"

namespace quenmoor {
namespace {

constexpr std::size_t kMostGrants = 100'000;

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
    if (grants_.size() >= kMostGrants)
        std::erase_if(grants_, [now](const auto& grant) { return grant.second.end <= now; });
    if (grants_.size() >= kMostGrants)
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

} // namespace quenmoor
