// Measured values, as a table for people and as JSON for programs.
//
// A figure is judged by its ratio to a limit that was measured in turn with it: the machine is
// shared, and the time that it takes away from one run it may give back to the next.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

// Informs the reader. Missing an aim is no failure.
struct Aim {
    enum class Bound { AtLeast, AtMost };

    Bound bound = Bound::AtMost;
    double value = 0;
};

struct Figure {
    std::string section;
    std::string name;
    std::string unit; // of `values` and `limits`
    std::vector<double> values;
    std::vector<double> limits = {}; // one for each value, or empty
    std::string limitName = {};
    std::optional<Aim> aim = {}; // for the median of the ratios; without limits, of the values
    std::string note = {};       // one line
};

// One member of every record.
template <typename Record>
[[nodiscard]] std::vector<double> valuesOf(const std::vector<Record>& records,
                                           double Record::*member)
{
    std::vector<double> values;
    values.reserve(records.size());
    for (const Record& record : records)
        values.push_back(record.*member);
    return values;
}

// One line for each figure, below the names of the sections. Every figure has a value.
[[nodiscard]] std::string tableOf(const std::vector<Figure>& figures);

// {"machine": {...}, "figures": [{"section", "name", "unit", "values", "limits", "aim", ...}]}
[[nodiscard]] nlohmann::json jsonOf(const std::vector<Figure>& figures);

} // namespace quenmoor
