#include "bench/google_figures.h"

#include "bench/measured_process.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace quenmoor {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds kLimit{120};
constexpr const char* kMemoryCounter = "bytes";

struct Program {
    const char* name;
    const char* section;
};

constexpr Program kPrograms[] = {{"quenmoor-table-bench", "table"},
                                 {"quenmoor-micro-bench", "small things"}};

struct KnownAim {
    const char* beginning; // of the figure's name
    double most;           // in the figure's unit
};

constexpr KnownAim kAims[] = {{"refresh, ", 0.2}, {"100,000 files added", 1}};

std::optional<Aim> aimOf(const std::string& name)
{
    for (const KnownAim& known : kAims) {
        if (name.starts_with(known.beginning))
            return Aim{Aim::Bound::AtMost, known.most};
    }
    return std::nullopt;
}

void note(std::string& whyNot, const std::string& reason)
{
    whyNot += (whyNot.empty() ? "" : "; ") + reason;
}

// The figure of that name, made when it is new.
Figure& figureOf(std::vector<Figure>& figures, const char* section, const std::string& name)
{
    const auto known = std::find_if(figures.begin(), figures.end(), [&](const Figure& figure) {
        return figure.section == section && figure.name == name;
    });
    if (known != figures.end())
        return *known;
    Figure& figure = figures.emplace_back();
    figure.section = section;
    figure.name = name;
    figure.aim = aimOf(name);
    return figure;
}

// One repetition. What the library adds to a benchmark's name stands behind a "/".
void add(std::vector<Figure>& figures, const char* section, const json& run, std::string& whyNot)
{
    if (run.at("run_type") != "iteration")
        return; // the library's own statistics
    const std::string wholeName = run.at("run_name");
    const std::string name = wholeName.substr(0, wholeName.find('/'));
    if (run.value("error_occurred", false)) {
        note(whyNot, name + ": " + run.value("error_message", ""));
        return;
    }
    Figure& figure = figureOf(figures, section, name);
    const bool isMemory = run.contains(kMemoryCounter);
    figure.unit = isMemory ? "bytes" : run.at("time_unit").get<std::string>();
    figure.ours.push_back(run.at(isMemory ? kMemoryCounter : "real_time"));
}

void run(const std::string& binFolder, const Program& program, std::vector<Figure>& figures,
         std::string& whyNot)
{
    const std::string path = binFolder + "/" + program.name;
    if (!std::filesystem::exists(path)) {
        note(whyNot, std::string(program.name) + " was not built");
        return;
    }
    MeasuredProcess process({path, "--benchmark_format=json", "--benchmark_repetitions=5",
                             "--benchmark_min_time=0.05"});
    const ProcessCost cost = process.finish(kLimit);
    const json report = json::parse(cost.output, nullptr, false);
    if (cost.status != 0 || !report.is_object() || !report.contains("benchmarks")) {
        note(whyNot, std::string(program.name) + " failed");
        return;
    }
    try {
        for (const json& benchmark : report["benchmarks"])
            add(figures, program.section, benchmark, whyNot);
    } catch (const json::exception& error) {
        note(whyNot, std::string(program.name) + " says what nobody understands: " + error.what());
    }
}

} // namespace

std::vector<Figure> benchmarkFigures(const std::string& binFolder, std::string& whyNot)
{
    std::vector<Figure> figures;
    for (const Program& program : kPrograms)
        run(binFolder, program, figures, whyNot);
    return figures;
}

} // namespace quenmoor
