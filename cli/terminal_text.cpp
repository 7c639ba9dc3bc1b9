#include "cli/terminal_text.h"

#include "base/text.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <filesystem>
#include <map>
#include <utility>

namespace quenmoor {
namespace {

// Selects a UTF-8 table of character widths for the calling thread, whatever the user's locale is:
// the output is always UTF-8.
class WidthTable {
public:
    WidthTable() : previous_(uselocale(utf8())) {}
    ~WidthTable() { uselocale(previous_); }
    WidthTable(const WidthTable&) = delete;
    WidthTable& operator=(const WidthTable&) = delete;

private:
    // Null, which changes nothing, if the system has no such locale. Never freed.
    static locale_t utf8()
    {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }

    const locale_t previous_;
};

// A character with the combining characters that follow it.
struct Glyph {
    std::string bytes;
    std::size_t columns;
};

std::vector<Glyph> glyphsOf(std::string_view text)
{
    const WidthTable table;
    const std::string valid = toValidUtf8(text);
    std::vector<Glyph> glyphs;
    std::size_t at = 0;
    for (const char32_t point : codePoints(valid)) {
        const std::size_t length = point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
        const int width = wcwidth(static_cast<wchar_t>(point));
        if (width != 0 || glyphs.empty()) // one column for a character that the table has not
            glyphs.push_back({{}, static_cast<std::size_t>(width < 0 ? 1 : width)});
        glyphs.back().bytes += valid.substr(at, length);
        at += length;
    }
    return glyphs;
}

// The glyphs from `begin` on that fit into `columns`.
template <typename Iterator>
Iterator fitting(Iterator begin, Iterator end, std::size_t columns)
{
    while (begin != end && begin->columns <= columns)
        columns -= (begin++)->columns;
    return begin;
}

// The last `count` components of `path`.
std::string endOf(const std::filesystem::path& path, std::size_t count)
{
    const auto parts = static_cast<std::size_t>(std::distance(path.begin(), path.end()));
    std::filesystem::path end;
    for (auto part = std::next(path.begin(), static_cast<std::ptrdiff_t>(parts - count));
         part != path.end(); ++part)
        end /= *part;
    return end.native();
}

} // namespace

std::size_t columnsOf(std::string_view text)
{
    std::size_t columns = 0;
    for (const Glyph& glyph : glyphsOf(text))
        columns += glyph.columns;
    return columns;
}

std::string elideMiddle(const std::string& text, std::size_t columns)
{
    if (columnsOf(text) <= columns)
        return text;
    if (columns == 0)
        return {};
    const std::vector<Glyph> glyphs = glyphsOf(text);
    const std::size_t tail = (columns - 1) / 2;
    const auto head = fitting(glyphs.begin(), glyphs.end(), columns - 1 - tail);
    const auto rest = fitting(glyphs.rbegin(), glyphs.rend(), tail).base();
    std::string elided;
    for (auto glyph = glyphs.begin(); glyph != head; ++glyph)
        elided += glyph->bytes;
    elided += "\u2026";
    for (auto glyph = rest; glyph != glyphs.end(); ++glyph)
        elided += glyph->bytes;
    return elided;
}

std::vector<std::string> distinctEnds(const std::vector<std::string>& paths)
{
    std::vector<std::filesystem::path> names;
    std::map<std::string, std::vector<std::size_t>> positions; // of the paths with the same end
    std::vector<std::string> ends;
    for (const std::string& path : paths) {
        std::filesystem::path name = std::filesystem::path(path).lexically_normal();
        if (!name.has_filename() && name.has_relative_path())
            name = name.parent_path();
        names.push_back(name);
        ends.push_back(endOf(name, name.empty() ? 0 : 1));
        positions[ends.back()].push_back(ends.size() - 1);
    }
    for (std::size_t count = 2; !positions.empty(); ++count) {
        const auto shared = std::exchange(positions, {});
        for (const auto& [end, same] : shared) {
            for (const std::size_t i : same) {
                if (same.size() == 1 || std::distance(names[i].begin(), names[i].end()) <
                                            static_cast<std::ptrdiff_t>(count))
                    continue;
                ends[i] = endOf(names[i], count);
                positions[ends[i]].push_back(i);
            }
        }
    }
    return ends;
}

} // namespace quenmoor
