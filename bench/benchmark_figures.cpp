#include "bench/process.h"
#include "bench/sections.h"
#include "tests/fakes/temp_folder.h"

#include <nlohmann/json.hpp>

#include <map>
#include <stdexcept>

namespace quenmoor {
namespace {

constexpr std::chrono::minutes kLimit{2};
constexpr const char* kMemoryCounter = "bytes";

// By the figure's name; at most so many of its unit.
const std::map<std::string, double> kAims{
    {"refresh, 10 rows", 0.2},      {"refresh, 10 rows, unseen", 0.2},
    {"refresh, 1,000 rows", 0.2},   {"refresh, 1,000 rows, unseen", 0.2},
    {"refresh, 100,000 rows", 0.2}, {"refresh, 100,000 rows, unseen", 0.2},
    {"100,000 files added", 1}};

// Adds one repetition. The library appends its settings to a benchmark's name after a "/".
void add(std::vector<Figure>& figures, const std::string& section, const nlohmann::json& run)
{
    const std::string fullName = run.at("run_name");
    const std::string name = fullName.substr(0, fullName.find('/'));
    if (run.value("error_occurred", false))
        throw std::runtime_error(name + ": " + run.value("error_message", ""));
    const bool isMemory = run.contains(kMemoryCounter);
    if (figures.empty() || figures.back().name != name) {
        figures.push_back({section, name, isMemory ? "bytes" : run.at("time_unit"), {}});
        if (const auto aim = kAims.find(name); aim != kAims.end())
            figures.back().aim = Aim{Aim::Bound::AtMost, aim->second};
    }
    figures.back().values.push_back(run.at(isMemory ? kMemoryCounter : "real_time"));
}

} // namespace

std::vector<Figure> benchmarkFigures(const Settings& settings, const std::string& program,
                                     const std::string& section)
{
    const TempFolder folder;
    const std::filesystem::path report = folder.path() / "report.json";
    printProgress(section, 0, 1);
    Process process({settings.programs / program, "--benchmark_out_format=json",
                     "--benchmark_out=" + report.string(), "--benchmark_repetitions=5",
                     "--benchmark_min_time=0.05"},
                    {.errorFile = folder.path() / "errors"});
    std::vector<Figure> figures;
    try {
        if (process.exitStatus(kLimit) != 0)
            throw std::runtime_error(contentOf(folder.path() / "errors"));
        const nlohmann::json runs = nlohmann::json::parse(contentOf(report)).at("benchmarks");
        for (const nlohmann::json& run : runs) {
            if (run.at("run_type") == "iteration") // others are statistics
                add(figures, section, run);
        }
    } catch (const std::exception& error) {
        throw std::runtime_error(program + " failed: " + error.what());
    }
    return figures;
}

} // namespace quenmoor
