#include "bench/figures.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/utsname.h>

#include <algorithm>
#include <fstream>
#include <thread>

namespace quenmoor {
namespace {

// Of what the aim speaks of.
std::vector<double> judged(const Figure& figure)
{
    return figure.limit.empty() ? figure.ours : ratiosOf(figure);
}

std::string shown(double value)
{
    return fmt::format("{:.{}f}", value, value < 10 ? 3 : value < 100 ? 2 : 1);
}

std::string shown(const Spread& spread)
{
    return fmt::format("{:>8} {:>8} {:>8}", shown(spread.least), shown(spread.median),
                       shown(spread.most));
}

std::string shownAim(const Figure& figure)
{
    if (!figure.aim)
        return "";
    const char* const bound = figure.aim->bound == Aim::Bound::AtLeast ? "at least" : "at most";
    return fmt::format("{} {}{}", bound, figure.aim->value, keepsAim(figure) ? "" : "  MISSED");
}

std::string lineOf(const Figure& figure)
{
    const bool alone = figure.limit.empty();
    std::string line = fmt::format(
        "  {:<34} {:>9} {:<8} {:>9} {:>6} {}  {}", figure.name, shown(spreadOf(figure.ours).median),
        figure.unit, alone ? "" : shown(spreadOf(figure.limit).median), alone ? "" : "ratio",
        shown(spreadOf(judged(figure))), shownAim(figure));
    if (!alone)
        line += "  beside " + figure.limitName;
    if (!figure.note.empty())
        line += "  (" + figure.note + ")";
    return line + '\n';
}

nlohmann::json jsonOf(const Spread& spread)
{
    return {{"min", spread.least}, {"median", spread.median}, {"max", spread.most}};
}

nlohmann::json machine()
{
    utsname system{};
    uname(&system);
    std::string processor = "unknown";
    std::ifstream list("/proc/cpuinfo");
    for (std::string line; std::getline(list, line);) {
        if (line.starts_with("model name")) {
            processor = line.substr(line.find(':') + 2);
            break;
        }
    }
    return {{"processor", processor},
            {"cores", std::thread::hardware_concurrency()},
            {"system", std::string(system.sysname) + " " + system.release}};
}

} // namespace

Spread spreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const bool even = values.size() % 2 == 0;
    const double median = even ? (values[middle - 1] + values[middle]) / 2 : values[middle];
    return {values.front(), median, values.back()};
}

std::vector<double> ratiosOf(const Figure& figure)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(figure.ours.size(), figure.limit.size()); ++i)
        ratios.push_back(figure.ours[i] / figure.limit[i]);
    return ratios;
}

bool keepsAim(const Figure& figure)
{
    if (!figure.aim)
        return true;
    const double median = spreadOf(judged(figure)).median;
    return figure.aim->bound == Aim::Bound::AtLeast ? median >= figure.aim->value
                                                    : median <= figure.aim->value;
}

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
        nlohmann::json entry{{"section", figure.section},
                             {"name", figure.name},
                             {"unit", figure.unit},
                             {"values", figure.ours},
                             {"ours", jsonOf(spreadOf(figure.ours))}};
        if (!figure.limit.empty()) {
            entry["limitName"] = figure.limitName;
            entry["limitValues"] = figure.limit;
            entry["limit"] = jsonOf(spreadOf(figure.limit));
            entry["ratio"] = jsonOf(spreadOf(ratiosOf(figure)));
        }
        if (figure.aim) {
            entry["aim"] = {{figure.aim->bound == Aim::Bound::AtLeast ? "atLeast" : "atMost",
                             figure.aim->value}};
            entry["kept"] = keepsAim(figure);
        }
        if (!figure.note.empty())
            entry["note"] = figure.note;
        list.push_back(std::move(entry));
    }
    return {{"machine", machine()}, {"figures", std::move(list)}};
}

} // namespace quenmoor
