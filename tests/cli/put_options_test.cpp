#include "cli/put_options.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

std::variant<PutOptions, EarlyExit> parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "quenmoor-put");
    return parsePutOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(PutOptionsTest, pairsTokensAndFilesInTheirOrder)
{
    const auto parsed =
        parse({"--token", "t1", "a.mov", "--token", "t2", "caf\xE9", "--host", "media.example:7000",
               "--existing", "resume", "--json", "--congestion", "library"});
    const auto& options = std::get<PutOptions>(parsed);
    EXPECT_EQ(options.tokens, (std::vector<std::string>{"t1", "t2"}));
    EXPECT_EQ(options.files, (std::vector<std::string>{"a.mov", "caf\xE9"}));
    EXPECT_EQ(options.host, "media.example");
    EXPECT_EQ(options.port, 7000);
    EXPECT_EQ(options.existing, ExistingPolicy::Resume);
    EXPECT_EQ(options.congestion, Congestion::Library);
    EXPECT_EQ(options.output, OutputMode::Json);
}

TEST(PutOptionsTest, usesDefaultsForOmittedOptions)
{
    const auto parsed = parse({"--token", "t", "--", "--odd-name"});
    const auto& options = std::get<PutOptions>(parsed);
    EXPECT_EQ(options.files, std::vector<std::string>{"--odd-name"});
    EXPECT_EQ(options.port, 65000);
    EXPECT_EQ(options.existing, ExistingPolicy::Ask);
    EXPECT_EQ(options.output, OutputMode::Human);
}

TEST(PutOptionsTest, rejectsAWrongCommandLineWithItsReason)
{
    const char* const port = "no port from 1 to 65535";
    const std::pair<const char*, std::vector<const char*>> rows[]{
        {"1 token for 2 files", {"--token", "t", "a", "b"}},
        {"2 tokens for 1 file", {"--token", "t", "--token", "u", "a"}},
        {"--token", {"a"}},
        {"FILE", {"--token", "t"}},
        {"a token must not be empty", {"--token", "", "a"}},
        {"--existing", {"--token", "t", "--existing", "maybe", "a"}},
        {"--congestion", {"--token", "t", "--congestion", "none", "a"}},
        {"--quiet", {"--token", "t", "--json", "--quiet", "a"}},
        {port, {"--host", "h:0", "--token", "t", "a"}},
        {port, {"--host", "h:65536", "--token", "t", "a"}},
        {port, {"--host", "h:-65000", "--token", "t", "a"}},
        {port, {"--host", "h:70x", "--token", "t", "a"}},
        {"no host before the colon", {"--host", ":7", "--token", "t", "a"}},
    };
    for (const auto& [text, arguments] : rows) {
        const auto parsed = parse(arguments);
        const auto* const exit = std::get_if<EarlyExit>(&parsed);
        ASSERT_NE(exit, nullptr) << text;
        EXPECT_EQ(exit->status, kExitUsage);
        EXPECT_NE(exit->text.find(text), std::string::npos) << exit->text;
    }
}

} // namespace
} // namespace quenmoor
