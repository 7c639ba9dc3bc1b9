#include "cli/shown_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quenmoor {
namespace {

bool startsCodePoint(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

// Byte offset of code point number `count` of `text`.
std::size_t offsetOf(const std::string& text, std::size_t count)
{
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        if (startsCodePoint(text[at]) && count-- == 0)
            break;
    }
    return at;
}

} // namespace

std::string oneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

std::string shownSize(std::int64_t bytes)
{
    constexpr std::array<const char*, 5> kUnits{"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    return unit == 0 ? fmt::format("{} B", bytes)
                     : fmt::format("{:.1f} {}", value, kUnits.at(unit));
}

std::string elidedMiddle(const std::string& text, std::size_t columns)
{
    const auto length =
        static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCodePoint));
    if (length <= columns)
        return text;
    if (columns == 0)
        return {};
    const std::size_t tail = (columns - 1) / 2;
    const std::size_t head = columns - 1 - tail;
    return text.substr(0, offsetOf(text, head)) + "\u2026" +
           text.substr(offsetOf(text, length - tail));
}

} // namespace quenmoor
