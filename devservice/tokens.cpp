#include "devservice/tokens.h"

#include "devservice/upload_store.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

namespace quenmoor {
namespace {

constexpr std::string_view kSessionSubject = "session";

// The parts of a signed text, before they are written as hexadecimal digits.
constexpr std::size_t kEndBytes = sizeof(std::int64_t);
constexpr std::size_t kRandomBytes = 8;
constexpr std::size_t kContentBytes = kEndBytes + kRandomBytes;
constexpr std::size_t kTagBytes = 16;
using Signed = Signer::SignedBytes;
constexpr std::size_t kTextSize = 2 * sizeof(Signed);
static_assert(sizeof(Signed) == kContentBytes + kTagBytes);

std::string toHex(const Signed& bytes)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0x0FU];
    }
    return text;
}

// Accepts only what toHex() writes, so that one token has one form.
std::optional<Signed> fromHex(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    Signed bytes{};
    if (text.size() != kTextSize)
        return std::nullopt;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::size_t high = kDigits.find(text[2 * i]);
        const std::size_t low = kDigits.find(text[2 * i + 1]);
        if (high == std::string_view::npos || low == std::string_view::npos)
            return std::nullopt;
        bytes[i] = static_cast<unsigned char>(high << 4U | low);
    }
    return bytes;
}

// The size comes first: a name may contain any byte but NUL.
std::string tokenSubject(std::string_view name, std::int64_t size)
{
    return "token " + std::to_string(size) + " " + std::string(name);
}

FileHandle temporaryFile()
{
    std::FILE* const file = std::tmpfile(); // already removed from its folder
    if (file == nullptr)
        return {};
    FileHandle handle(fcntl(fileno(file), F_DUPFD_CLOEXEC, 0));
    std::fclose(file);
    return handle;
}

} // namespace

Signer::Signer() : hasKey_(RAND_bytes(key_.data(), static_cast<int>(key_.size())) == 1) {}

std::string Signer::sign(std::string_view subject, Time end) const
{
    Signed bytes{};
    const std::int64_t ticks = end.time_since_epoch().count();
    std::memcpy(bytes.data(), &ticks, kEndBytes);
    if (!hasKey_ || RAND_bytes(&bytes[kEndBytes], kRandomBytes) != 1)
        return {};
    addTag(bytes, subject);
    return toHex(bytes);
}

std::optional<Signer::Time> Signer::verify(std::string_view text, std::string_view subject) const
{
    const auto given = fromHex(text);
    if (!given || !hasKey_)
        return std::nullopt;
    Signed expected = *given;
    addTag(expected, subject);
    if (CRYPTO_memcmp(given->data(), expected.data(), expected.size()) != 0)
        return std::nullopt;
    std::int64_t ticks = 0;
    std::memcpy(&ticks, given->data(), kEndBytes);
    return Time(Time::duration(ticks));
}

void Signer::addTag(SignedBytes& bytes, std::string_view subject) const
{
    std::string message(bytes.begin(), bytes.begin() + kContentBytes);
    message += subject;
    std::array<unsigned char, EVP_MAX_MD_SIZE> tag{};
    HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(message.data()), message.size(), tag.data(),
         nullptr);
    std::copy_n(tag.begin(), kTagBytes, bytes.begin() + kContentBytes);
}

TokenStore::TokenStore(ServiceClock now) : now_(std::move(now)), usedFile_(temporaryFile()) {}

void TokenStore::add(std::string token)
{
    if (token.empty())
        return;
    const std::lock_guard lock(mutex_);
    fixed_.insert(std::move(token));
}

std::string TokenStore::issue(std::string_view name, std::int64_t size,
                              std::chrono::seconds lifetime) const
{
    return signer_.sign(tokenSubject(name, size), now_() + lifetime);
}

bool TokenStore::accepts(std::string_view token, std::string_view name, std::int64_t size) const
{
    const std::lock_guard lock(mutex_);
    if (fixed_.contains(token))
        return true;
    const auto end = signer_.verify(token, tokenSubject(name, size));
    return end && now_() < *end && !used_.contains(token);
}

void TokenStore::useUp(std::string_view token)
{
    if (!fromHex(token)) // a fixed token
        return;
    const std::lock_guard lock(mutex_);
    if (used_.emplace(token).second && usedFile_)
        std::ignore = writeAll(usedFile_.get(), token.data(), token.size());
}

void TokenStore::readUsedTokens()
{
    const std::lock_guard lock(mutex_);
    std::array<char, kTextSize> text{};
    off_t offset = 0;
    while (pread(usedFile_.get(), text.data(), text.size(), offset) == std::ssize(text)) {
        used_.emplace(text.data(), text.size());
        offset += std::ssize(text);
    }
}

SessionStore::SessionStore(const TokenStore& tokens, Lifetimes lifetimes, ServiceClock now)
    : tokens_(tokens), lifetimes_(lifetimes), now_(std::move(now))
{
}

std::optional<std::string> SessionStore::open(std::string_view previous) const
{
    if (isValid(previous))
        return std::string(previous);
    std::string session = tokens_.signer().sign(kSessionSubject, now_() + lifetimes_.session);
    return session.empty() ? std::nullopt : std::optional(std::move(session));
}

SessionStore::IssuedToken SessionStore::issueToken(std::string_view session, std::string_view name,
                                                   std::int64_t size) const
{
    if (!isValid(session))
        return {{}, Refusal::UnknownSession};
    if (!isStorableName(name) || size < 0)
        return {{}, Refusal::BadFile};
    return {tokens_.issue(name, size, lifetimes_.token), Refusal::NoRandomNumbers};
}

bool SessionStore::isValid(std::string_view session) const
{
    const auto end = tokens_.signer().verify(session, kSessionSubject);
    return end && now_() < *end;
}

} // namespace quenmoor
