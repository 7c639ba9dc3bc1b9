// What a benchmark has measured, as a table for people and as JSON for programs.
//
// A figure is judged by its ratio to a limit that was measured beside it, turn by turn in one run:
// these machines are shared, and a second that one run loses the next would win.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

struct Spread {
    double least = 0;
    double median = 0;
    double most = 0;
};

// Of one value at least.
[[nodiscard]] Spread spreadOf(std::vector<double> values);

// What a figure should be, for its reader. Nothing fails by it.
struct Aim {
    enum class Bound { AtLeast, AtMost };

    Bound bound = Bound::AtMost;
    double value = 0;
};

struct Figure {
    std::string section; // "loopback", "small files", ...
    std::string name;    // "speed"
    std::string unit;    // of `ours` and of `limit`
    std::vector<double> ours;
    std::vector<double> limit;   // one beside each of `ours`; empty: the figure stands alone
    std::string limitName = {};  // what the limit is
    std::optional<Aim> aim = {}; // of the ratios where there is a limit, else of `ours`
    std::string note = {};       // one line
};

// One for each pair; empty without a limit.
[[nodiscard]] std::vector<double> ratiosOf(const Figure& figure);

// Whether the median keeps to the aim; true without one.
[[nodiscard]] bool keepsAim(const Figure& figure);

// One line a figure, under the name of its section.
[[nodiscard]] std::string tableOf(const std::vector<Figure>& figures);

// {"machine": {...}, "figures": [{"section", "name", "unit", "ours", "limit", "ratio", "aim"...}]}
[[nodiscard]] nlohmann::json jsonOf(const std::vector<Figure>& figures);

} // namespace quenmoor
