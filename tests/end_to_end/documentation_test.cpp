// The options in --help, the manual pages and README are the same.
#include "bench/process.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

namespace quenmoor {
namespace {

using Options = std::set<std::string>;

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

TEST(Documentation, listsTheOptionsOfHelpEverywhere)
{
    for (const auto& [name, program] :
         {std::pair{"quenmoor-put", QUENMOOR_PUT}, {"quenmoor-devservice", DEVSERVICE}}) {
        Options options = optionsIn(helpOf(program));
        EXPECT_GT(options.size(), 6U);
        EXPECT_EQ(optionsIn(manualOf(name), kManualOption), options) << name;
        options.erase("help");
        options.erase("version");
        EXPECT_EQ(optionsIn(readmeOf(name)), options) << name;
    }
#ifdef QUENMOOR_UPLOAD
    EXPECT_EQ(optionsIn(manualOf("quenmoor-upload"), kManualOption),
              optionsIn(helpOf(QUENMOOR_UPLOAD)));
#endif
}

} // namespace
} // namespace quenmoor
