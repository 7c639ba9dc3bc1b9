// Compares leadingInt..() with 128-bit arithmetic and checks properties of the other text
// functions.
#include "base/text.h"

#include <cstdlib>
#include <limits>

namespace {

template <typename Integer>
Integer reference(std::string_view text)
{
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string_view::npos)
        return 0;
    const bool negative = text[at] == '-';
    if (text[at] == '-' || text[at] == '+')
        ++at;
    __extension__ __int128 value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        if (value <= std::numeric_limits<std::int64_t>::max())
            value = value * 10 + (text[at] - '0');
    }
    value = negative ? -value : value;
    if (value > std::numeric_limits<Integer>::max())
        return std::numeric_limits<Integer>::max();
    if (value < std::numeric_limits<Integer>::min())
        return std::numeric_limits<Integer>::min();
    return static_cast<Integer>(value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (quenmoor::leadingInt64(text) != reference<std::int64_t>(text) ||
        quenmoor::leadingInt32(text) != reference<std::int32_t>(text))
        std::abort();
    if (quenmoor::percentDecode(quenmoor::percentEncodeQuery(text)) != text)
        std::abort();
    if (!quenmoor::isUtf8(quenmoor::printableLine(text)))
        std::abort();
    return 0;
}
