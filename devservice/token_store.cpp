#include "devservice/token_store.h"

namespace quenmoor {

void TokenStore::add(std::string token)
{
    if (token.empty())
        return;
    const std::lock_guard lock(mutex_);
    tokens_.insert(std::move(token));
}

bool TokenStore::accepts(std::string_view token, std::string_view /*name*/,
                         std::int64_t /*size*/) const
{
    const std::lock_guard lock(mutex_);
    return tokens_.contains(token);
}

} // namespace quenmoor
