// The largest delivery rate of the last ten rounds.
#pragma once

#include <algorithm>
#include <array>

namespace quenmoor {

// Rates in packets a second; 0 while nothing is known. Used by one thread at a time.
class MaxRateFilter {
public:
    // Ten rounds hold one whole cycle of probing.
    static constexpr int kRounds = 10;

    double maximum() const { return *std::max_element(rates_.begin(), rates_.end()); }

    // Belongs to the round that runs.
    void add(double rate) { rates_.front() = std::max(rates_.front(), rate); }

    void nextRound()
    {
        std::rotate(rates_.begin(), rates_.end() - 1, rates_.end());
        rates_.front() = 0;
    }

    // Forgets all but the newest rounds.
    void keepNewest(int rounds) { std::fill(rates_.begin() + rounds, rates_.end(), 0.0); }

    // From here on the path has this rate.
    void restart(double rate)
    {
        rates_.fill(0);
        rates_.front() = rate;
    }

private:
    std::array<double, kRounds> rates_{}; // newest first
};

} // namespace quenmoor
