#include "ui/main_thread_bridge.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

namespace quenmoor {
namespace {

// The test's own thread is the main thread; `woken` counts the calls for it.
struct MainThreadBridgeTest : testing::Test {
    std::counting_semaphore<> woken{0};
    MainThreadBridge bridge{[this] { woken.release(); }};

    void serveOnce()
    {
        woken.acquire();
        bridge.runPending();
    }
};

TEST_F(MainThreadBridgeTest, runsTheWorkOnTheMainThreadBeforeTheCallerGoesOn)
{
    std::thread::id ranOn;
    auto caller = std::async(std::launch::async, [&] {
        const bool ran = bridge.runOnMainAndWait([&] { ranOn = std::this_thread::get_id(); });
        return ran && ranOn != std::thread::id();
    });
    serveOnce();
    EXPECT_TRUE(caller.get());
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(MainThreadBridgeTest, servesManyCallersAndKeepsEachOnesOrder)
{
    constexpr int kCallers = 4;
    constexpr int kCalls = 500;
    std::array<std::vector<int>, kCallers> seen; // main thread only, so unguarded
    std::vector<std::jthread> callers;
    for (std::vector<int>& mine : seen) {
        callers.emplace_back([this, &mine] {
            for (int i = 0; i < kCalls; ++i)
                EXPECT_TRUE(bridge.runOnMainAndWait([&mine, i] { mine.push_back(i); }));
        });
    }
    for (int i = 0; i < kCallers * kCalls; ++i)
        serveOnce();
    callers.clear();
    for (const std::vector<int>& order : seen) {
        EXPECT_EQ(order.size(), kCalls);
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    }
}

TEST_F(MainThreadBridgeTest, closingLetsGoWhoeverWaitsAndTurnsLaterOnesAway)
{
    std::atomic<int> ran{0};
    std::vector<std::future<bool>> callers;
    for (int i = 0; i < 3; ++i) {
        callers.push_back(std::async(std::launch::async,
                                     [&] { return bridge.runOnMainAndWait([&ran] { ++ran; }); }));
        woken.acquire(); // it waits in the queue
    }
    bridge.close();
    for (auto& caller : callers)
        EXPECT_FALSE(caller.get());

    EXPECT_FALSE(bridge.runOnMainAndWait([&ran] { ++ran; }));
    EXPECT_EQ(bridge.askOnMainAndWait([&ran](const auto&) { ++ran; }), std::nullopt);
    bridge.runPending();
    EXPECT_EQ(ran, 0);
}

TEST_F(MainThreadBridgeTest, workThatHasBegunIsWaitedForThroughTheClose)
{
    std::atomic<bool> finished{false};
    auto caller = std::async(std::launch::async, [&] {
        // the work ends the program, as the engine's last call does, and has more to do
        return bridge.runOnMainAndWait([&] {
            bridge.close();
            finished = true;
        }) && finished;
    });
    serveOnce();
    EXPECT_TRUE(caller.get());
}

TEST_F(MainThreadBridgeTest, workMayServeOtherCallersFromInside)
{
    auto inner = std::async(std::launch::async, [&] { return bridge.runOnMainAndWait([] {}); });
    woken.acquire(); // the inner one is queued first, and the outer one behind it
    auto outer = std::async(std::launch::async,
                            [&] { return bridge.runOnMainAndWait([&] { bridge.runPending(); }); });
    serveOnce();
    EXPECT_TRUE(inner.get());
    EXPECT_TRUE(outer.get());
}

struct Question : MainThreadBridgeTest {
    MainThreadBridge::AnswerCallback give;
    std::future<std::optional<std::int32_t>> caller;

    // Leaves a question open.
    Question()
    {
        caller = std::async(std::launch::async, [this] {
            return bridge.askOnMainAndWait([this](const auto& answer) { give = answer; });
        });
        serveOnce();
    }
};

TEST_F(Question, isAnsweredLongAfterItWasAskedWhileOtherWorkGoesOn)
{
    auto other = std::async(std::launch::async, [&] { return bridge.runOnMainAndWait([] {}); });
    serveOnce();
    EXPECT_TRUE(other.get());

    give(1002);
    give(1001); // a second answer is none
    EXPECT_EQ(caller.get(), 1002);
}

TEST_F(Question, thatStandsOpenAtTheEndHasNoAnswer)
{
    bridge.close();
    EXPECT_EQ(caller.get(), std::nullopt);
    give(1000); // the dialog that is taken down answers too late
}

TEST_F(Question, thatWasAnsweredBeforeTheEndKeepsItsAnswer)
{
    give(1001);
    bridge.close();
    EXPECT_EQ(caller.get(), 1001);
}

} // namespace
} // namespace quenmoor
