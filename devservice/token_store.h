// Which upload tokens the transfer server accepts: fixed ones, for every file, and those that the
// upload page gives out, each for one file and a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace quenmoor {

// A steady clock; a test puts its own in.
using ServiceClock = std::function<std::chrono::steady_clock::time_point()>;

// Any thread.
class TokenStore {
public:
    // `now` is asked under a lock and must not call back.
    explicit TokenStore(ServiceClock now = std::chrono::steady_clock::now);

    // Accepts `token` for every file from now on. An empty one is never accepted.
    void add(std::string token);

    // Accepts `token` for the file `name` of `size` bytes until `lifetime` has passed. False when
    // there are too many tokens.
    [[nodiscard]] bool addFor(std::string token, std::string name, std::int64_t size,
                              std::chrono::seconds lifetime);

    // Whether `token` lets the file `name` of `size` bytes in. Asked once for each attempt, so a
    // token must stay good for the retries of its file.
    [[nodiscard]] bool accepts(std::string_view token, std::string_view name,
                               std::int64_t size) const;

private:
    struct Grant {
        std::string name;
        std::int64_t size;
        std::chrono::steady_clock::time_point end;
    };

    const ServiceClock now_;

    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> tokens_;        // guarded by mutex_
    std::map<std::string, Grant, std::less<>> grants_; // guarded by mutex_
};

} // namespace quenmoor
