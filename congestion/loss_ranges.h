// A set of packet numbers, kept as ranges that neither touch nor overlap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace quenmoor {

// Both ends belong to the range.
struct NumberRange {
    std::int64_t first;
    std::int64_t last;
};

// Used by one thread at a time.
class LossRanges {
public:
    // How many numbers of `range` were not in the set before.
    std::int64_t insert(NumberRange range);

    void eraseBelow(std::int64_t number);

    bool contains(std::int64_t number) const;
    bool empty() const { return ranges_.empty(); }
    std::int64_t count() const { return count_; }
    std::int64_t highest() const { return ranges_.rbegin()->second; } // requires !empty()

private:
    std::map<std::int64_t, std::int64_t> ranges_; // last by first
    std::int64_t count_ = 0;
};

} // namespace quenmoor
