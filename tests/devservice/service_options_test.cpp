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
    EXPECT_EQ(options.page.value().stateFolder, "/state/quenmoor-devservice");
    EXPECT_EQ(options.page->tokenLifetime, 24h);

    setenv("XDG_STATE_HOME", "relative", 1); // to be ignored
    setenv("HOME", "/home/me", 1);
    std::vector<const char*> arguments{"--token", "t1", "t2", "--fault", "drop-after=5000000000"};
    EXPECT_FALSE(std::get<ServiceOptions>(parse(arguments)).page);
    arguments.insert(arguments.end(), {"--page-port", "0", "--page", "p", "--token", "t3"});
    const auto both = std::get<ServiceOptions>(parse(arguments));
    EXPECT_EQ(both.tokens, (std::vector<std::string>{"t1", "t2", "t3"}));
    EXPECT_EQ(both.faults, (Faults{{FaultKind::DropAfter, 5'000'000'000}}));
    EXPECT_EQ(both.page.value().folder, "p");
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
