// How much of what the pace allowed the application has left unused. Rounds in which it left
// much say little about the path.
#pragma once

#include <algorithm>

#include "congestion/sent_packets.h"

namespace quenmoor {

// Used by one thread at a time.
class AppLimit {
public:
    explicit AppLimit(Micros now) : last_(now) {}

    // A packet goes out. `rate` is what the pace allows, in packets a second; `held` tells that
    // the window was full since the packet before, and nobody is to blame. True when the
    // application rested before it.
    bool sent(Micros now, double rate, bool held)
    {
        const double left = held ? 0 : unusedAt(now, rate);
        unused_ += left;
        credit_ = held ? -1 : std::min(credit(now, rate), bunch(rate)) - 1;
        last_ = now;
        return left > 0;
    }

    // Packets that could have gone out until `now`, and did not, since the last one that did.
    double unusedAt(Micros now, double rate) const
    {
        return std::max(credit(now, rate) - bunch(rate), 0.0);
    }

    // Packets, since the beginning.
    double unused() const { return unused_; }

private:
    // The library sends in bunches, up to 10 ms of packets at once.
    static double bunch(double rate) { return rate * 0.01 + 16; }

    double credit(Micros now, double rate) const
    {
        return std::max(credit_, -bunch(rate)) + static_cast<double>(now - last_) * 1e-6 * rate;
    }

    Micros last_;
    double credit_ = 0;
    double unused_ = 0;
};

} // namespace quenmoor
