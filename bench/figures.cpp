#include "bench/figures.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/utsname.h>

#include <algorithm>
#include <fstream>
#include <thread>

namespace quenmoor {
namespace {

struct Spread {
    double least;
    double median;
    double most;
};

Spread spreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median =
        values.size() % 2 == 0 ? (values[middle - 1] + values[middle]) / 2 : values[middle];
    return {values.front(), median, values.back()};
}

// The ratios, or the values of a figure without limits.
Spread judgedSpread(const Figure& figure)
{
    std::vector<double> judged = figure.values;
    for (std::size_t i = 0; i < figure.limits.size(); ++i)
        judged[i] /= figure.limits[i];
    return spreadOf(judged);
}

std::string numberText(double value)
{
    return fmt::format("{:.{}f}", value, value < 10 ? 3 : value < 100 ? 2 : 1);
}

std::string aimText(const Figure& figure)
{
    if (!figure.aim)
        return "";
    const bool atLeast = figure.aim->bound == Aim::Bound::AtLeast;
    const double median = judgedSpread(figure).median;
    const bool met = atLeast ? median >= figure.aim->value : median <= figure.aim->value;
    return fmt::format("{} {}{}", atLeast ? "at least" : "at most", figure.aim->value,
                       met ? "" : "  MISSED");
}

std::string lineOf(const Figure& figure)
{
    const bool alone = figure.limits.empty();
    const Spread spread = judgedSpread(figure);
    return fmt::format("  {:<34} {:>9} {:<8} {:>9} {:>6} {:>8} {:>8} {:>8}  {}{}{}\n", figure.name,
                       numberText(spreadOf(figure.values).median), figure.unit,
                       alone ? "" : numberText(spreadOf(figure.limits).median),
                       alone ? "" : "ratio", numberText(spread.least), numberText(spread.median),
                       numberText(spread.most), aimText(figure),
                       alone ? "" : "  beside " + figure.limitName,
                       figure.note.empty() ? "" : "  (" + figure.note + ")");
}

nlohmann::json machine()
{
    utsname system{};
    uname(&system);
    std::string processor = "unknown";
    std::ifstream list("/proc/cpuinfo");
    for (std::string line; processor == "unknown" && std::getline(list, line);) {
        if (line.starts_with("model name"))
            processor = line.substr(line.find(':') + 2);
    }
    return {{"processor", processor},
            {"cores", std::thread::hardware_concurrency()},
            {"system", std::string(system.sysname) + " " + system.release}};
}

} // namespace

std::string tableOf(const std::vector<Figure>& figures)
{
    std::string table;
    std::string section;
    for (const Figure& figure : figures) {
        if (figure.section != section)
            table += fmt::format("\n{:<36} {:>9} {:<8} {:>9} {:>6} {:>8} {:>8} {:>8}  aim\n",
                                 figure.section, "ours", "", "limit", "", "min", "median", "max");
        section = figure.section;
        table += lineOf(figure);
    }
    return table;
}

nlohmann::json jsonOf(const std::vector<Figure>& figures)
{
    nlohmann::json list = nlohmann::json::array();
    for (const Figure& figure : figures) {
        const Spread spread = judgedSpread(figure);
        list.push_back({{"section", figure.section},
                        {"name", figure.name},
                        {"unit", figure.unit},
                        {"values", figure.values},
                        {"limits", figure.limits},
                        {"limitName", figure.limitName},
                        {figure.limits.empty() ? "spread" : "ratio",
                         {{"min", spread.least}, {"median", spread.median}, {"max", spread.most}}},
                        {"aim", aimText(figure)},
                        {"note", figure.note}});
    }
    return {{"machine", machine()}, {"figures", std::move(list)}};
}

} // namespace quenmoor
