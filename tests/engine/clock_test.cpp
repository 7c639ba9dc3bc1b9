#include "engine/clock.h"

#include <gtest/gtest.h>

#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

TEST(SystemClock, endsEverySleepWhenTheProgramEnds)
{
    SystemClock clock;
    EXPECT_FALSE(clock.ending());
    std::thread ender([&clock] { clock.end(); });
    EXPECT_FALSE(clock.sleepFor(1h));
    ender.join();
    EXPECT_FALSE(clock.sleepFor(1h));
    EXPECT_TRUE(clock.ending());
}

TEST(SystemClock, sleepsForTheTimeOrUntilItIsWoken)
{
    SystemClock clock;
    std::stop_source wake;
    std::thread waker([&wake] { wake.request_stop(); });
    EXPECT_TRUE(clock.sleep(1h, wake.get_token()));
    waker.join();
    const std::int64_t before = clock.nanoseconds();
    EXPECT_TRUE(clock.sleepFor(2ms));
    EXPECT_GE(clock.nanoseconds() - before, 2'000'000);
}

} // namespace
} // namespace quenmoor
