#include "base/text.h"

#include <utf8.h>

#include <charconv>
#include <limits>

namespace quenmoor {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kQueryPunctuation = "-._~!$&'()*+,;=:@/?";

// Unlike <cctype>, these do not depend on the locale.
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
        text.remove_prefix(1); // from_chars accepts only a minus sign
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

// Returns the number of bytes of the character at the beginning of `text` if it is one of U+0080 to
// U+009F, U+061C, U+200E, U+200F, U+2028 to U+202E and U+2066 to U+2069, else 0.
std::size_t invisibleLength(std::string_view text)
{
    const auto third = static_cast<unsigned char>(text.size() > 2 ? text[2] : 0);
    if (text.starts_with("\xE2\x80"))
        return third == 0x8E || third == 0x8F || (third >= 0xA8 && third <= 0xAE) ? 3 : 0;
    if (text.starts_with("\xE2\x81"))
        return third >= 0xA6 && third <= 0xA9 ? 3 : 0;
    const bool isC1 = text.starts_with('\xC2') && text.size() > 1 &&
                      (static_cast<unsigned char>(text[1]) & 0xE0U) == 0x80;
    return isC1 || text.starts_with("\u061C") ? 2 : 0;
}

// Replaces the control characters of `text` except those in `kept`, which are all below U+0080:
// U+0000 to U+001F and U+007F by their Unicode control pictures (a line feed becomes U+240A),
// U+0080 to U+009F, which terminals interpret too, by U+FFFD. U+FFFD also replaces the characters
// that reorder the text around them (Unicode Standard Annex 9, section 2) or break the line, U+2028
// and U+2029: "invoice\u202Evom.exe" would display as "invoiceexe.mov". Ill-formed UTF-8 remains.
std::string escapeControls(std::string_view text, std::string_view kept)
{
    constexpr unsigned char kDelete = 0x7F;
    constexpr unsigned char kDeletePicture = 0xA1; // the last byte of U+2421
    const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    std::string escaped;
    escaped.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char byte = byteAt(i);
        if ((byte < 0x20 || byte == kDelete) && kept.find(text[i]) == std::string_view::npos) {
            std::string picture = "\u2400"; // of U+0000; the pictures have the controls' order
            picture.back() = static_cast<char>(byte == kDelete ? kDeletePicture : 0x80 + byte);
            escaped += picture;
        } else if (const std::size_t length = invisibleLength(text.substr(i)); length > 0) {
            escaped += "\uFFFD";
            i += length - 1;
        } else {
            escaped += text[i];
        }
    }
    return escaped;
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
        if (isLetter(c) || isDigit(c) || kQueryPunctuation.find(c) != std::string_view::npos) {
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
    return utf8::is_valid(bytes);
}

std::string toValidUtf8(std::string_view bytes)
{
    return utf8::replace_invalid(bytes);
}

std::u32string codePoints(std::string_view bytes)
{
    return utf8::utf8to32(toValidUtf8(bytes));
}

std::string printableLine(std::string_view bytes)
{
    return escapeControls(toValidUtf8(bytes), {});
}

std::string printableText(std::string_view bytes)
{
    return escapeControls(toValidUtf8(bytes), "\t\n");
}

} // namespace quenmoor
