#include "cli/put_options.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

std::variant<PutOptions, PutExit> parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "quenmoor-put");
    return parsePutOptions(static_cast<int>(arguments.size()), arguments.data());
}

std::string complaint(const std::vector<const char*>& arguments)
{
    const auto parsed = parse(arguments);
    const auto* const exit = std::get_if<PutExit>(&parsed);
    if (exit == nullptr)
        return "accepted";
    EXPECT_EQ(exit->status, kExitUsage);
    return exit->text;
}

TEST(PutOptionsTest, pairTokensAndFilesInTheirOrder)
{
    const auto parsed =
        parse({"--token", "t1", "a.mov", "--token", "t2", "caf\xE9", "--host", "media.example:7000",
               "--existing", "resume", "--json", "--congestion", "paced"});
    const auto& options = std::get<PutOptions>(parsed);
    EXPECT_EQ(options.tokens, (std::vector<std::string>{"t1", "t2"}));
    EXPECT_EQ(options.files, (std::vector<std::string>{"a.mov", "caf\xE9"}));
    EXPECT_EQ(options.host, "media.example");
    EXPECT_EQ(options.port, 7000);
    EXPECT_EQ(options.existing, Existing::Resume);
    EXPECT_EQ(options.congestion, Congestion::Paced);
    EXPECT_EQ(options.output, Output::Json);
}

TEST(PutOptionsTest, standWithoutBeingAsked)
{
    const auto parsed = parse({"--token", "t", "--", "--odd-name"});
    const auto& options = std::get<PutOptions>(parsed);
    EXPECT_EQ(options.files, std::vector<std::string>{"--odd-name"});
    EXPECT_EQ(options.port, 65000);
    EXPECT_EQ(options.existing, Existing::Ask);
    EXPECT_EQ(options.output, Output::Human);
}

TEST(PutOptionsTest, areRefusedWithASentenceThatHelps)
{
    const auto says = [](const std::string& text, const std::vector<const char*>& arguments) {
        EXPECT_NE(complaint(arguments).find(text), std::string::npos) << complaint(arguments);
    };
    says("1 token for 2 files", {"--token", "t", "a", "b"});
    says("2 tokens for 1 file", {"--token", "t", "--token", "u", "a"});
    says("--token", {"a"});
    says("FILE", {"--token", "t"});
    says("a token is empty", {"--token", "", "a"});
    says("--existing", {"--token", "t", "--existing", "maybe", "a"});
    says("--congestion", {"--token", "t", "--congestion", "none", "a"});
    says("--quiet", {"--token", "t", "--json", "--quiet", "a"});
    says("no port from 1 to 65535", {"--host", "h:0", "--token", "t", "a"});
    says("no port from 1 to 65535", {"--host", "h:65536", "--token", "t", "a"});
    says("no port from 1 to 65535", {"--host", "h:70x", "--token", "t", "a"});
    says("the host is missing", {"--host", ":7", "--token", "t", "a"});
}

TEST(PutOptionsTest, explainTheExitStatusInTheHelp)
{
    const auto parsed = parse({"--help"});
    const auto& help = std::get<PutExit>(parsed);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.text.find("Exit status"), std::string::npos);
}

} // namespace
} // namespace quenmoor
