// The options and exit statuses in --help, the manual pages and README are the same.
#include "bench/process.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>

namespace quenmoor {
namespace {

using Options = std::set<std::string>;
using Statuses = std::map<std::string, std::string>; // description by number or numbers

template <typename Use>
void forEachMatch(const std::string& text, const char* pattern, Use use)
{
    const std::regex regex(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        use(*match);
}

Options optionsIn(const std::string& text, const char* pattern = "--([a-z][a-z-]+)")
{
    Options options;
    forEachMatch(text, pattern, [&](const std::smatch& match) { options.insert(match[1]); });
    return options;
}

Statuses statusesIn(const std::string& text, const char* pattern)
{
    Statuses statuses;
    forEachMatch(text, pattern, [&](const std::smatch& match) {
        const std::string numbers = std::regex_replace(match.str(1), std::regex("[ ,]+"), " ");
        std::string description = std::regex_replace(match.str(2), std::regex("\\.?\\s*$"), "");
        std::replace(description.begin(), description.end(), '\n', ' ');
        description[0] = static_cast<char>(std::tolower(description[0]));
        statuses[numbers] = description;
    });
    return statuses;
}

std::string helpOf(const char* program)
{
    Process process({program, "--help"}, {.environment = {"QT_QPA_PLATFORM=offscreen"}});
    EXPECT_EQ(process.exitStatus(), 0) << program;
    return process.output();
}

std::string sourceFile(const std::string& path)
{
    return contentOf(std::string(SOURCE_FOLDER "/") + path);
}

std::string manualOf(const std::string& name)
{
    return sourceFile("packaging/man/" + name + ".1");
}

// The part of README that describes the program.
std::string readmeOf(const std::string& name)
{
    const std::string readme = sourceFile("README.md");
    const std::size_t begin = readme.find("\n**`" + name);
    return begin == std::string::npos
               ? ""
               : readme.substr(
                     begin, std::min(readme.find("\n**`", begin + 1), readme.find("\n## ", begin)) -
                                begin);
}

constexpr const char* kManualOption = "Fl Fl ([a-z][a-z-]+)";
constexpr const char* kHelpStatus = "\n +([0-9]+(?:, [0-9]+)*)  +(.+)";
constexpr const char* kManualStatus = "\\.It ([0-9]+(?: , [0-9]+)*)\n((?:[^.\n].*\n)+)";
constexpr const char* kReadmeStatus = "\n\\| ([0-9]+(?:, [0-9]+)*) \\| (.*) \\|";

TEST(Documentation, listsTheOptionsOfHelpEverywhere)
{
    for (const auto& [name, program] :
         {std::pair{"quenmoor-put", QUENMOOR_PUT}, {"quenmoor-devservice", DEVSERVICE}}) {
        Options options = optionsIn(helpOf(program));
        EXPECT_GT(options.size(), 6U);
        EXPECT_EQ(optionsIn(manualOf(name), kManualOption), options) << name;
        const std::string folder = "packaging/completions/";
        EXPECT_EQ(optionsIn(sourceFile(folder + name + ".bash")), options) << name;
        EXPECT_EQ(optionsIn(sourceFile(folder + "_" + name)), options) << name;
        EXPECT_EQ(optionsIn(sourceFile(folder + name + ".fish"), " -l ([a-z][a-z-]+)"), options);
        options.erase("help");
        options.erase("version");
        EXPECT_EQ(optionsIn(readmeOf(name)), options) << name;
    }
#ifdef QUENMOOR_UPLOAD
    EXPECT_EQ(optionsIn(manualOf("quenmoor-upload"), kManualOption),
              optionsIn(helpOf(QUENMOOR_UPLOAD)));
#endif
}

TEST(Documentation, givesTheExitStatusesOfHelpEverywhere)
{
    const Statuses put = statusesIn(helpOf(QUENMOOR_PUT), kHelpStatus);
    EXPECT_GE(put.size(), 6U);
    EXPECT_EQ(statusesIn(manualOf("quenmoor-put"), kManualStatus), put);
    EXPECT_EQ(statusesIn(readmeOf("quenmoor-put"), kReadmeStatus), put);

    const Statuses service = statusesIn(helpOf(DEVSERVICE), kHelpStatus);
    EXPECT_EQ(service.size(), 3U);
    EXPECT_EQ(statusesIn(manualOf("quenmoor-devservice"), kManualStatus), service);
}

} // namespace
} // namespace quenmoor
