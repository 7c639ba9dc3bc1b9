#include "base/text.h"

#include <charconv>
#include <limits>

namespace quenmoor {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kQueryMarks = "-._~!$&'()*+,;=:@/?";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// <cctype> follows the locale; these do not.
constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}
constexpr bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

template <typename Integer>
Integer leadingInteger(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
    const bool negative = text.starts_with('-');
    if (text.starts_with('+')) {
        text.remove_prefix(1); // from_chars knows only the minus sign
        if (text.starts_with('-'))
            return 0;
    }
    Integer value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range)
        return negative ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
    return value;
}

int hexValue(char c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

struct Utf8Part {
    std::size_t length; // bytes that belong together, at least 1
    bool wellFormed;
};

// The part that `bytes`, not empty, begins with: table 3-7 of the Unicode standard.
Utf8Part leadingPart(std::string_view bytes)
{
    const auto at = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char first = at(0);
    if (first < 0x80)
        return {1, true};
    if (first < 0xC2 || first > 0xF4)
        return {1, false};

    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
    switch (first) {
    case 0xE0: lowest = 0xA0; break;  // overlong
    case 0xED: highest = 0x9F; break; // surrogates
    case 0xF0: lowest = 0x90; break;  // overlong
    case 0xF4: highest = 0x8F; break; // past U+10FFFF
    default: break;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= bytes.size() || at(i) < lowest || at(i) > highest)
            return {i, false};
        lowest = 0x80;
        highest = 0xBF;
    }
    return {length, true};
}

// What stands for `part`, one character or ill-formed: itself, unless it is a control character.
std::string visible(std::string_view part)
{
    constexpr unsigned char kDelete = 0x7F;
    constexpr unsigned char kDeletePicture = 0x21; // after the picture of NUL
    const auto first = static_cast<unsigned char>(part.front());
    if (first < 0x20 || first == kDelete) {
        std::string picture = "\u2400"; // of NUL; the others follow in order
        picture.back() = static_cast<char>(0x80 + (first == kDelete ? kDeletePicture : first));
        return picture;
    }
    const bool high =
        part.size() == 2 && first == 0xC2 && static_cast<unsigned char>(part[1]) < 0xA0;
    return std::string(high ? kReplacement : part);
}

} // namespace

std::int32_t leadingInt32(std::string_view text)
{
    return leadingInteger<std::int32_t>(text);
}

std::int64_t leadingInt64(std::string_view text)
{
    return leadingInteger<std::int64_t>(text);
}

std::optional<std::int64_t> wholeNumber(std::string_view text)
{
    const char* const end = text.data() + text.size();
    std::int64_t value = 0;
    const auto [rest, failed] = std::from_chars(text.data(), end, value);
    return failed == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

std::string percentEncodeQuery(std::string_view bytes)
{
    constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(bytes.size());
    for (const char c : bytes) {
        if (isLetter(c) || isDigit(c) || kQueryMarks.find(c) != std::string_view::npos) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += '%';
        encoded += kHexDigits[byte >> 4U];
        encoded += kHexDigits[byte & 0x0FU];
    }
    return encoded;
}

std::string percentDecode(std::string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
        if (low < 0) {
            bytes += text[i];
            continue;
        }
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return bytes;
}

bool isUtf8(std::string_view bytes)
{
    while (!bytes.empty()) {
        const Utf8Part part = leadingPart(bytes);
        if (!part.wellFormed)
            return false;
        bytes.remove_prefix(part.length);
    }
    return true;
}

std::string toValidUtf8(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Utf8Part part = leadingPart(bytes);
        text += part.wellFormed ? bytes.substr(0, part.length) : kReplacement;
        bytes.remove_prefix(part.length);
    }
    return text;
}

std::string escapeControls(std::string_view text, std::string_view kept)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::string_view part = text.substr(0, leadingPart(text).length);
        if (kept.find(part.front()) != std::string_view::npos)
            shown += part;
        else
            shown += visible(part);
        text.remove_prefix(part.size());
    }
    return shown;
}

std::string printableLine(std::string_view bytes)
{
    return escapeControls(toValidUtf8(bytes));
}

} // namespace quenmoor
