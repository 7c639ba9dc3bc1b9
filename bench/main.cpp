// quenmoor-bench: what Quenmoor Upload reaches, beside what it could. See docs/performance.md.
#include "bench/google_figures.h"
#include "bench/links.h"
#include "bench/loopback.h"
#include "bench/window_figures.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace quenmoor {

void sayProgress(const std::string& what, int round, int rounds)
{
    std::fprintf(stderr, "bench: %s, %d of %d\n", what.c_str(), round + 1, rounds);
}

namespace {

namespace fs = std::filesystem;

struct Options {
    BenchSetup setup;
    std::vector<std::string> only;
    std::string json = "bench.json";
    std::string folder = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    bool quick = false;
};

void addOptions(CLI::App& app, Options& options)
{
    BenchSetup& setup = options.setup;
    app.add_option("--only", options.only, "Sections, of: loopback small links window things")
        ->check(CLI::IsMember({"loopback", "small", "links", "window", "things"}));
    app.add_option("--rounds", setup.rounds, "How often a figure and its limit take turns")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--links", setup.links,
                   "Links by name, or all:\n" + fmt::format("{}", fmt::join(linkNames(), "\n")));
    app.add_option("--link-rounds", setup.linkRounds, "The same for links")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--seconds", setup.linkSeconds, "On each link, each time")
        ->check(CLI::Range(1.0, 3600.0))
        ->capture_default_str();
    app.add_option("--json", options.json, "Where the figures go")->capture_default_str();
    app.add_option("--folder", options.folder, "For 2 GB of files that come and go")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_flag("--quick", options.quick,
                 "Whether every figure can be had: they mean nothing, and none may be left out");
}

// A folder of its own, gone at the end.
class WorkFolder {
public:
    explicit WorkFolder(const std::string& parent) : path_(parent + "/quenmoor-bench-XXXXXX")
    {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no folder can be made in " + parent);
    }
    ~WorkFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

std::vector<Figure> measure(const Options& options)
{
    const BenchSetup& setup = options.setup;
    std::vector<Figure> figures;
    const auto add = [&](const char* section, const auto& measured) {
        const auto& only = options.only;
        if (!only.empty() && std::find(only.begin(), only.end(), section) == only.end())
            return;
        const std::vector<Figure> more = measured();
        figures.insert(figures.end(), more.begin(), more.end());
    };
    const auto orWhyNot = [&options](auto function) {
        return [&options, function] {
            std::string whyNot;
            std::vector<Figure> more = function(options.setup.programs.string(), whyNot);
            if (options.quick && !whyNot.empty())
                throw std::runtime_error(whyNot);
            if (!whyNot.empty())
                std::fprintf(stderr, "bench: left out: %s\n", whyNot.c_str());
            return more;
        };
    };
    add("loopback", [&] { return loopbackFigures(setup); });
    add("small", [&] { return smallFileFigures(setup); });
    add("links", [&] { return linkFigures(setup); });
    add("window", orWhyNot(windowFigures));
    add("things", orWhyNot(benchmarkFigures));
    return figures;
}

int run(Options& options)
{
    if (options.quick) {
        options.setup.rounds = 1;
        options.setup.linkRounds = 1;
        options.setup.largeFile = 8 << 20;
        options.setup.smallFiles = 2;
        options.setup.linkSeconds = 2;
        options.setup.links = {linkNames().front()};
    }
    const WorkFolder folder(options.folder);
    options.setup.folder = folder.path();
    options.setup.programs = fs::read_symlink("/proc/self/exe").parent_path();
    const std::vector<Figure> figures = measure(options);
    std::fputs(tableOf(figures).c_str(), stdout);
    std::ofstream json(options.json);
    json << jsonOf(figures).dump(2) << '\n';
    json.close();
    if (!json)
        throw std::runtime_error("cannot write " + options.json);
    std::printf("\nThe figures are in %s\n", options.json.c_str());
    return EXIT_SUCCESS;
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
