#include "devservice/service_options.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

std::variant<ServiceOptions, ServiceExit> parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), {"quenmoor-devservice", "--root", "store"});
    return parseServiceOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(ServiceOptions, thereIsAPageWithoutATokenOrOnRequest)
{
    setenv("XDG_STATE_HOME", "/state", 1);
    const auto options = std::get<ServiceOptions>(parse({}));
    EXPECT_EQ(options.bindAddress + ":" + std::to_string(options.port), "127.0.0.1:65000");
    ASSERT_TRUE(options.page);
    EXPECT_EQ(options.page->stateFolder, "/state/quenmoor-devservice");
    EXPECT_EQ(options.page->tokenLifetime, 24h);

    const auto plain = std::get<ServiceOptions>(
        parse({"--token", "t1", "t2", "--fault", "drop-after=5000000000", "--token", "t3"}));
    EXPECT_EQ(plain.tokens, (std::vector<std::string>{"t1", "t2", "t3"}));
    EXPECT_EQ(plain.faults, (Faults{{FaultKind::DropAfter, 5'000'000'000}}));
    EXPECT_FALSE(plain.page);

    setenv("XDG_STATE_HOME", "relative", 1); // to be ignored
    setenv("HOME", "/home/me", 1);
    const auto both = std::get<ServiceOptions>(parse(
        {"--token", "t1", "--page-port", "0", "--token-lifetime", "60", "--page", "p", "--auto"}));
    ASSERT_TRUE(both.page && both.page->automatic);
    EXPECT_EQ(both.page->tokenLifetime, 60s);
    EXPECT_EQ(both.page->folder, "p");
    EXPECT_EQ(both.page->stateFolder, "/home/me/.local/state/quenmoor-devservice");
}

TEST(ServiceOptions, errorsExitWithStatusTwoAndNameTheOption)
{
    const std::map<std::string, std::vector<const char*>> invalid{
        {"--fault",
         {"", "=", "Never-Answer", "never-answer=", "never-answer=1", "drop-after", "drop-after=",
          "drop-after=-1", "drop-after=1k", "slow-reading=0", "drop-after=9223372036854775808"}},
        {"--newest-version", {"", "1.2", "1..3", "1.2.-3", "1.2.3.4"}},
        {"--port", {"65536"}},
        {"--token", {""}},
        {"--fault-count", {"-1"}},
        {"--token-lifetime", {"0"}},
        {"--update-url", {"\xFF"}}};
    for (const auto& [option, values] : invalid) {
        for (const char* const value : values) {
            const auto exit = std::get<ServiceExit>(parse({option.c_str(), value}));
            EXPECT_EQ(exit.status, 2) << option << value;
            EXPECT_NE(exit.text.find(option), std::string::npos) << exit.text;
        }
    }
    const std::string faults = faultNames();
    EXPECT_EQ(std::count(faults.begin(), faults.end(), ','),
              static_cast<int>(FaultKind::LargerFinalSize));
}

} // namespace
} // namespace quenmoor
