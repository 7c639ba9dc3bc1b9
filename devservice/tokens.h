// Which uploads the service accepts: the upload tokens, and the sessions of the upload page that
// issue them.
//
// A token is either fixed and accepted for every file, or issued by the page for one file, which is
// identified by the bytes of its name and its size, for a limited time. What the page issues is
// signed, not stored: any number can be issued, and every process forked from the one that created
// the store accepts it.
#pragma once

#include "devservice/store_folders.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace quenmoor {

// A steady clock. The stores call it while they hold their lock, so it must not call them.
using ServiceClock = std::function<std::chrono::steady_clock::time_point()>;

// Signs texts of 64 hexadecimal digits: a time of expiry, a random number and an HMAC-SHA256 (RFC
// 2104) over both and a subject, cut to 128 bits. Any thread.
class Signer {
public:
    using Time = std::chrono::steady_clock::time_point;
    using SignedBytes = std::array<unsigned char, 32>;

    // Creates a random key. Without random numbers, nothing is signed or accepted.
    Signer();

    // Returns an empty text if no random numbers are available.
    std::string sign(std::string_view subject, Time end) const;

    // Returns when `text` expires, or nothing unless it was signed for `subject`.
    [[nodiscard]] std::optional<Time> verify(std::string_view text, std::string_view subject) const;

private:
    void addTag(SignedBytes& bytes, std::string_view subject) const;

    std::array<unsigned char, 32> key_{};
    bool hasKey_ = false;
};

// Any thread.
class TokenStore {
public:
    explicit TokenStore(ServiceClock now = std::chrono::steady_clock::now);

    // Accepts `token` for every file from now on. An empty token is ignored.
    void add(std::string token);

    // Returns a token for the file `name` of `size` bytes that is accepted until `lifetime` has
    // passed or it is used up; empty if no random numbers are available.
    std::string issue(std::string_view name, std::int64_t size,
                      std::chrono::seconds lifetime) const;

    // Whether `token` is valid for the file `name` of `size` bytes. Does not use the token up,
    // because every retry of an upload sends the same one.
    [[nodiscard]] bool accepts(std::string_view token, std::string_view name,
                               std::int64_t size) const;

    // Refuses an issued token from now on; a fixed one remains. The process that is forked next
    // refuses it too, once it has called readUsedTokens().
    void useUp(std::string_view token);
    void readUsedTokens();

    const Signer& signer() const { return signer_; }

private:
    const ServiceClock now_;
    const Signer signer_;
    const FileHandle usedFile_; // the used tokens, for other processes; none if it cannot be opened

    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> fixed_; // guarded by mutex_
    std::set<std::string, std::less<>> used_;  // guarded by mutex_
};

// Issues the sessions of the page, and tokens to them. Any thread.
class SessionStore {
public:
    struct Lifetimes {
        std::chrono::seconds session = std::chrono::hours(24); // since it was issued
        std::chrono::seconds token = std::chrono::hours(24);   // since it was issued
    };

    // `tokens` must outlive the store.
    SessionStore(const TokenStore& tokens, Lifetimes lifetimes, ServiceClock now);

    // Returns `previous` if it is a session that has not expired, otherwise a new one; nothing if
    // no random numbers are available.
    [[nodiscard]] std::optional<std::string> open(std::string_view previous) const;

    enum class Refusal { UnknownSession, BadFile, NoRandomNumbers };
    struct IssuedToken {
        std::string token; // empty if refused
        Refusal refusal{};
    };

    // Issues a token for the file `name` of `size` bytes. A bad file has a name that the upload
    // store refuses or a negative size.
    [[nodiscard]] IssuedToken issueToken(std::string_view session, std::string_view name,
                                         std::int64_t size) const;

private:
    bool isValid(std::string_view session) const;

    const TokenStore& tokens_;
    const Lifetimes lifetimes_;
    const ServiceClock now_;
};

} // namespace quenmoor
