// Packet numbers: 31 bits on the wire, 64 bits inside.
#pragma once

#include <cstdint>

namespace quenmoor {

// The number that reads as `wire` and lies nearest to `near`, at most 2^30 away.
constexpr std::int64_t unwrapped(std::int32_t wire, std::int64_t near)
{
    constexpr std::int64_t kNumbers = std::int64_t{1} << 31;
    const std::int64_t ahead = (std::int64_t{wire} - near) & (kNumbers - 1);
    return near + (ahead < kNumbers / 2 ? ahead : ahead - kNumbers);
}

} // namespace quenmoor
