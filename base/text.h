// Numbers, percent-encoding and UTF-8, for text that comes from outside the program.
//
// A file name is a sequence of bytes that need not be UTF-8. The functions that change it for
// display are toValidUtf8() and the two printable...(); nothing opens or sends their results.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

// Returns the integer that `text` begins with: white space, one optional sign, then decimal digits
// up to the first other character. Returns 0 if there is no digit. A value beyond the type's range
// saturates at its largest or smallest value.
std::int32_t leadingInt32(std::string_view text);
std::int64_t leadingInt64(std::string_view text);

// Returns the value of a text that consists of one decimal integer, with an optional minus sign.
// Returns nothing for any other text and for a value beyond the type's range.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// Replaces every byte that is not a query character of RFC 3986 (section 3.4) by "%" and two
// upper-case hexadecimal digits. "&", "=", "+" and "?" are query characters and remain.
std::string percentEncodeQuery(std::string_view bytes);

// Replaces "%" and two hexadecimal digits by the byte that they encode. Any other "%" remains.
std::string percentDecode(std::string_view text);

// Returns true if `bytes` is well-formed UTF-8: no overlong form, no surrogate, nothing above
// U+10FFFF.
bool isUtf8(std::string_view bytes);

// Replaces every ill-formed sequence of `bytes` by U+FFFD. Control characters remain.
std::string toValidUtf8(std::string_view bytes);

// Returns the code points of toValidUtf8(bytes).
std::u32string codePoints(std::string_view bytes);

// Makes `bytes`, e.g. a file name, safe to show on one line of a window or terminal: toValidUtf8()
// with all control characters replaced, those below U+0080 by their Unicode control pictures, the
// others and the characters that reorder text (e.g. U+202E) or break the line by U+FFFD.
std::string printableLine(std::string_view bytes);

// Makes `bytes`, e.g. a received document, safe to print on a terminal: printableLine() that keeps
// tabs and line feeds.
std::string printableText(std::string_view bytes);

} // namespace quenmoor
