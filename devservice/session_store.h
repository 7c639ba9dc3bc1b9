// The sessions that the upload page runs in, and the tokens that it gives out in them.
//
// Both are 256 random bits as hexadecimal digits. A session lasts as long as the page comes back
// to it; a token is good for one file, named by its bytes and its size.
#pragma once

#include "devservice/token_store.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

// Any thread.
class SessionStore {
public:
    struct Lifetimes {
        std::chrono::seconds session = std::chrono::hours(24); // since its last use
        std::chrono::seconds token = std::chrono::hours(24);   // since it was given out
    };

    // `tokens` outlives the store and keeps the tokens that are given out. `now` is asked under a
    // lock and must not call back.
    SessionStore(TokenStore& tokens, Lifetimes lifetimes, ServiceClock now);

    // `wanted` when it is a session of this store that has not expired, else a new one. Nothing
    // when there are too many sessions or no random numbers.
    [[nodiscard]] std::optional<std::string> open(std::string_view wanted);

    enum class Refusal { UnknownSession, BadFile, NoRoom };
    struct Answer {
        std::string token; // empty when it was refused
        Refusal refusal{};
    };

    // A token for the file `name` of `size` bytes, for whoever knows `session`. A bad file has no
    // name, one longer than 255 bytes or with a slash or a NUL byte in it, or a negative size.
    [[nodiscard]] Answer issueToken(std::string_view session, std::string_view name,
                                    std::int64_t size);

private:
    using Time = std::chrono::steady_clock::time_point;

    bool renew(std::string_view session);

    TokenStore& tokens_;
    const Lifetimes lifetimes_;
    const ServiceClock now_;

    std::mutex mutex_;
    std::map<std::string, Time, std::less<>> sessions_; // with their ends; guarded by mutex_
};

} // namespace quenmoor
