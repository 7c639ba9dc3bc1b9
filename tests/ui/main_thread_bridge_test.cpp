#include "ui/main_thread_bridge.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <semaphore>
#include <thread>
#include <vector>

namespace quenmoor {
namespace {

// The thread of the test is the main thread; `woken` counts its wake-ups.
struct MainThreadBridgeTest : testing::Test {
    std::counting_semaphore<> woken{0};
    MainThreadBridge bridge{[this] { woken.release(); }};

    void serveOnce()
    {
        woken.acquire();
        bridge.runPending();
    }
    // Queues `work` for another thread, which waits for it.
    std::future<bool> queue(MainThreadBridge::Work work)
    {
        auto caller = std::async(std::launch::async, [this, work = std::move(work)] {
            return bridge.runOnMainAndWait(work);
        });
        woken.acquire();
        return caller;
    }
};

TEST_F(MainThreadBridgeTest, runsTheWorkOfEachCallerInOrderOnTheMainThread)
{
    constexpr int kCallers = 4;
    constexpr int kCalls = 500;
    std::array<std::vector<int>, kCallers> results; // main thread only, so unguarded
    std::vector<std::jthread> callers;
    for (std::vector<int>& own : results) {
        callers.emplace_back([this, &own, main = std::this_thread::get_id()] {
            for (int i = 0; i < kCalls; ++i)
                EXPECT_TRUE(bridge.runOnMainAndWait([&] {
                    own.push_back(i);
                    EXPECT_EQ(std::this_thread::get_id(), main);
                }));
        });
    }
    for (int i = 0; i < kCallers * kCalls; ++i)
        serveOnce();
    callers.clear();
    for (const std::vector<int>& own : results) {
        EXPECT_EQ(own.size(), kCalls);
        EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
    }
}

TEST_F(MainThreadBridgeTest, closeReleasesWaitingCallersAndRejectsLaterOnes)
{
    std::atomic<int> ran{0};
    std::vector<std::future<bool>> callers;
    for (int i = 0; i < 3; ++i)
        callers.push_back(queue([&ran] { ++ran; }));
    bridge.close();
    for (auto& caller : callers)
        EXPECT_FALSE(caller.get());

    EXPECT_FALSE(bridge.runOnMainAndWait([&ran] { ++ran; }));
    EXPECT_EQ(bridge.askOnMainAndWait([&ran](const auto&) { ++ran; }), std::nullopt);
    bridge.runPending();
    EXPECT_EQ(ran, 0);
}

TEST_F(MainThreadBridgeTest, workThatHasBegunIsWaitedForAfterClose)
{
    std::atomic<bool> finished{false};
    auto caller = std::async(std::launch::async, [&] {
        // the work ends the program, as the engine's last call does, and then continues
        return bridge.runOnMainAndWait([&] {
            bridge.close();
            finished = true;
        }) && finished;
    });
    serveOnce();
    EXPECT_TRUE(caller.get());
}

TEST_F(MainThreadBridgeTest, aQuestionHasTheFirstAnswerThatPrecedesClose)
{
    using Answers = std::vector<std::int32_t>;
    const auto ask = [this](const Answers& early, const Answers& late) {
        MainThreadBridge::AnswerCallback answer;
        auto caller = std::async(std::launch::async, [&] {
            return bridge.askOnMainAndWait([&answer](const auto& callback) { answer = callback; });
        });
        serveOnce();
        auto other = queue([] {}); // while the question is open
        bridge.runPending();
        EXPECT_TRUE(other.get());
        for (const std::int32_t given : early)
            answer(given);
        if (early.empty())
            bridge.close();
        const std::optional<std::int32_t> result = caller.get();
        for (const std::int32_t given : late)
            answer(given);
        return result;
    };
    EXPECT_EQ(ask({1002, 1001}, {1000}), 1002);
    EXPECT_EQ(ask({}, {1000}), std::nullopt);
}

} // namespace
} // namespace quenmoor
