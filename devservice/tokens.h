// Which uploads the service accepts: the upload tokens, and the sessions of the upload page that
// issue them.
//
// A token is either fixed and accepted for every file, or issued by the page for one file, which is
// identified by the bytes of its name and its size, for a limited time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace quenmoor {

// A steady clock. The stores call it while they hold their lock, so it must not call them.
using ServiceClock = std::function<std::chrono::steady_clock::time_point()>;

// Any thread.
class TokenStore {
public:
    explicit TokenStore(ServiceClock now = std::chrono::steady_clock::now);

    // Accepts `token` for every file from now on. An empty token is ignored.
    void add(std::string token);

    // Accepts `token` for the file `name` of `size` bytes until `lifetime` has passed. Returns
    // false if the token is empty or too many tokens are valid.
    [[nodiscard]] bool addFor(std::string token, std::string name, std::int64_t size,
                              std::chrono::seconds lifetime);

    // Whether `token` is valid for the file `name` of `size` bytes. Does not use the token up,
    // because every retry of an upload sends the same one.
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

// Creates sessions and tokens of 256 random bits, written as hexadecimal digits. Any thread.
class SessionStore {
public:
    struct Lifetimes {
        std::chrono::seconds session = std::chrono::hours(24); // since its last use
        std::chrono::seconds token = std::chrono::hours(24);   // since it was issued
    };

    // `tokens` must outlive the store and receives the issued tokens.
    SessionStore(TokenStore& tokens, Lifetimes lifetimes, ServiceClock now);

    // Returns `previous` if it is a session of this store that has not expired, otherwise a new
    // one; nothing if there are too many sessions or no random numbers.
    [[nodiscard]] std::optional<std::string> open(std::string_view previous);

    enum class Refusal { UnknownSession, BadFile, TooManyTokens };
    struct IssuedToken {
        std::string token; // empty if refused
        Refusal refusal{};
    };

    // Issues a token for the file `name` of `size` bytes. A bad file has an empty name, a name of
    // more than 255 bytes or with a slash or NUL byte, or a negative size.
    [[nodiscard]] IssuedToken issueToken(std::string_view session, std::string_view name,
                                         std::int64_t size);

private:
    using Time = std::chrono::steady_clock::time_point;

    bool extend(std::string_view session);

    TokenStore& tokens_;
    const Lifetimes lifetimes_;
    const ServiceClock now_;

    std::mutex mutex_;
    std::map<std::string, Time, std::less<>> sessions_; // time of expiry; guarded by mutex_
};

} // namespace quenmoor
