#include "congestion/loss_ranges.h"

#include <algorithm>
#include <iterator>

namespace quenmoor {

std::int64_t LossRanges::insert(NumberRange range)
{
    const std::int64_t before = count_;
    auto at = ranges_.upper_bound(range.first);
    if (at != ranges_.begin() && std::prev(at)->second + 1 >= range.first)
        --at;
    while (at != ranges_.end() && at->first <= range.last + 1) {
        range.first = std::min(range.first, at->first);
        range.last = std::max(range.last, at->second);
        count_ -= at->second - at->first + 1;
        at = ranges_.erase(at);
    }
    ranges_.emplace_hint(at, range.first, range.last);
    count_ += range.last - range.first + 1;
    return count_ - before;
}

void LossRanges::eraseBelow(std::int64_t number)
{
    while (!ranges_.empty() && ranges_.begin()->first < number) {
        const auto [first, last] = *ranges_.begin();
        ranges_.erase(ranges_.begin());
        count_ -= last - first + 1;
        if (last >= number) {
            ranges_.emplace(number, last);
            count_ += last - number + 1;
        }
    }
}

bool LossRanges::contains(std::int64_t number) const
{
    const auto after = ranges_.upper_bound(number);
    return after != ranges_.begin() && std::prev(after)->second >= number;
}

} // namespace quenmoor
