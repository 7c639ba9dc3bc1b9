// Which upload tokens the transfer server accepts.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace quenmoor {

// Any thread.
class TokenStore {
public:
    // Accepts `token` for every file from now on. An empty one is never accepted.
    void add(std::string token);

    // Whether `token` lets the file `name` of `size` bytes in. Asked once for each attempt, so a
    // token must stay good for the retries of its file.
    [[nodiscard]] bool accepts(std::string_view token, std::string_view name,
                               std::int64_t size) const;

private:
    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> tokens_; // guarded by mutex_
};

} // namespace quenmoor
