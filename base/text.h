// Small rules for text that comes from outside: numbers, encodings, what may be shown.
//
// File names are bytes on this system. Nothing here assumes that they are UTF-8;
// only toValidUtf8() and printableLine() make them so, and what they return is for showing only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

// The integer that `text` begins with: white space is skipped, one sign is taken, then decimal
// digits up to the first other character. 0 when there is no digit; a value beyond the type's
// range becomes its largest or smallest value.
std::int32_t leadingInt32(std::string_view text);
std::int64_t leadingInt64(std::string_view text);

// The value of a text that is one decimal integer and nothing else: digits, with a minus sign
// before them or not. Nothing for any other text and for a value beyond the type's range.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// Every byte outside the query characters of RFC 3986 (section 3.4) becomes "%" and two
// upper-case hexadecimal digits. "&", "=", "+" and "?" are query characters and stay.
std::string percentEncodeQuery(std::string_view bytes);

// Takes each "%" with two hexadecimal digits back to its byte; any other "%" stays as it is.
std::string percentDecode(std::string_view text);

// True when `bytes` is well-formed UTF-8: no overlong form, no surrogate, nothing past U+10FFFF.
bool isUtf8(std::string_view bytes);

// `bytes` with every ill-formed part replaced by U+FFFD, one for each maximal part as the
// Unicode standard recommends (section 3.9).
std::string toValidUtf8(std::string_view bytes);

// `text` with every control character visible, so that none breaks a line or steers a terminal:
// U+0000 to U+001F and U+007F as the pictures that Unicode has for them, a line feed as U+240A;
// U+0080 to U+009F, which terminals obey too, as U+FFFD. The characters of `kept`, all below
// U+0080, stay, and so do ill-formed parts.
std::string escapeControls(std::string_view text, std::string_view kept = {});

// `bytes`, a file name as a rule, for one line of a window or a terminal: toValidUtf8() with its
// control characters visible.
std::string printableLine(std::string_view bytes);

} // namespace quenmoor
