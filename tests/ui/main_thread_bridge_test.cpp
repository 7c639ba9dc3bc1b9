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
    constexpr std::size_t kCalls = 500;
    std::array<std::jthread, 4> callers;
    for (std::jthread& caller : callers) {
        caller = std::jthread([this, main = std::this_thread::get_id()] {
            std::size_t ran = 0; // main thread only while a call waits, so unguarded
            for (std::size_t i = 1; i <= kCalls; ++i) {
                EXPECT_TRUE(bridge.runOnMainAndWait([&] {
                    ++ran;
                    EXPECT_EQ(std::this_thread::get_id(), main);
                }));
                EXPECT_EQ(ran, i);
            }
        });
    }
    for (std::size_t i = 0; i < callers.size() * kCalls; ++i)
        serveOnce();
}

TEST_F(MainThreadBridgeTest, closeReleasesTheCallersWhoseWorkHasNotBegunAndRejectsLaterOnes)
{
    std::atomic<int> ran{0};
    // The work ends the program, as the engine's last call does, and then continues.
    auto begun = queue([&] {
        bridge.close();
        ++ran;
    });
    std::array<std::future<bool>, 3> callers;
    for (auto& caller : callers)
        caller = queue([&ran] { ++ran; });
    bridge.runPending();
    EXPECT_TRUE(begun.get());
    for (auto& caller : callers)
        EXPECT_FALSE(caller.get());

    EXPECT_FALSE(bridge.runOnMainAndWait([&ran] { ++ran; }));
    EXPECT_EQ(bridge.askOnMainAndWait([&ran](const auto&) { ++ran; }), std::nullopt);
    bridge.runPending();
    EXPECT_EQ(ran, 1);
}

TEST_F(MainThreadBridgeTest, aQuestionHasTheFirstAnswerThatPrecedesClose)
{
    const auto ask = [this](const std::vector<std::int32_t>& early) {
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
        answer(1000);
        return result;
    };
    EXPECT_EQ(ask({1002, 1001}), 1002);
    EXPECT_EQ(ask({}), std::nullopt);
}

} // namespace
} // namespace quenmoor
