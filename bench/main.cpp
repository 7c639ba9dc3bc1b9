// quenmoor-bench: measures the built programs, each figure in turn with what limits it. See
// docs/performance.md.
#include "bench/sections.h"
#include "tests/fakes/temp_folder.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <functional>

namespace quenmoor {

void printProgress(const std::string& what, int round, int rounds)
{
    std::fprintf(stderr, "bench: %s, %d of %d\n", what.c_str(), round + 1, rounds);
}

namespace {

namespace fs = std::filesystem;

struct Options {
    Settings settings;
    std::vector<std::string> only;
    std::string json = "bench.json";
    std::string folder = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    bool quick = false;
};

void addOptions(CLI::App& app, Options& options)
{
    Settings& settings = options.settings;
    std::vector<std::string> links = linkNames();
    links.emplace_back("all");
    app.add_option("--only", options.only, "Sections to measure")
        ->check(CLI::IsMember({"loopback", "small", "links", "window", "things"}));
    app.add_option("--rounds", settings.rounds, "Measurements of each figure and its limit")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--links", settings.links, "Links to measure")->check(CLI::IsMember(links));
    app.add_option("--link-rounds", settings.linkRounds, "Transfers over each link")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--seconds", settings.linkSeconds, "Length of each transfer over a link")
        ->check(CLI::Range(1.0, 3600.0))
        ->capture_default_str();
    app.add_option("--json", options.json, "File for the figures")->capture_default_str();
    app.add_option("--folder", options.folder, "Folder for up to 2 GB of temporary files")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_flag("--quick", options.quick,
                 "Only check that every figure can be measured; the values mean nothing");
}

// A section that this machine cannot measure is left out, except for a quick check.
std::vector<Figure> measure(const Options& options)
{
    const Settings& settings = options.settings;
    std::vector<Figure> figures;
    const auto add = [&](const char* section, const auto& measureSection) {
        if (!options.only.empty() &&
            std::count(options.only.begin(), options.only.end(), section) == 0)
            return;
        try {
            const std::vector<Figure> more = measureSection();
            figures.insert(figures.end(), more.begin(), more.end());
        } catch (const std::exception& error) {
            if (options.quick)
                throw;
            std::fprintf(stderr, "bench: left out of %s: %s\n", section, error.what());
        }
    };
    add("loopback", [&] { return largeFileFigures(settings); });
    add("small", [&] { return smallFileFigures(settings); });
    add("links", [&] { return linkFigures(settings); });
    add("window", [&] { return windowFigures(settings); });
    add("things", [&] { return benchmarkFigures(settings, "quenmoor-table-bench", "table"); });
    add("things", [&] { return benchmarkFigures(settings, "quenmoor-micro-bench", "functions"); });
    return figures;
}

int run(Options& options)
{
    Settings& settings = options.settings;
    if (options.quick) {
        settings.rounds = 1;
        settings.linkRounds = 1;
        settings.largeFile = 8 << 20;
        settings.smallFiles = 2;
        settings.linkSeconds = 2;
        settings.links = {linkNames().front()};
    }
    setenv("TMPDIR", options.folder.c_str(), 1); // every temporary folder is made there
    settings.programs = fs::read_symlink("/proc/self/exe").parent_path();
    const std::vector<Figure> figures = measure(options);
    std::fputs(tableOf(figures).c_str(), stdout);
    std::ofstream json(options.json);
    json << jsonOf(figures).dump(2) << '\n';
    json.close();
    if (!json)
        throw std::runtime_error("cannot write " + options.json);
    std::printf("\nThe figures are in %s\n", options.json.c_str());
    return figures.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    quenmoor::Options options;
    CLI::App app("Measures Quenmoor Upload.", "quenmoor-bench");
    quenmoor::addOptions(app, options);
    try {
        app.parse(argc, argv);
        return quenmoor::run(options);
    } catch (const CLI::Error& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quenmoor-bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
