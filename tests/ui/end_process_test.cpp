#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"
#include "ui/main_thread_bridge.h"
#include "ui/startup_and_exit.h"

#include <gtest/gtest.h>

#include <array>
#include <semaphore>

namespace quenmoor {
namespace {

// Never comes back from a rendezvous, as far as the process's end is concerned.
class LostLink : public FakeTransferLink {
public:
    std::binary_semaphore reached{0};

    bool rendezvousWithServer(std::int32_t /*connected*/, std::int32_t& /*socket*/) override
    {
        reached.release();
        std::binary_semaphore never{0};
        never.acquire();
        return false;
    }
};

struct Parts {
    SilentLog log;
    TempFolder folder;
    UploadQueues queues;
    MainThreadBridge bridge{[] {}};
    SystemClock clock;
    FakeUploadView view;

    void queueFile()
    {
        queues.addFiles(std::array{FileUrl::fromPath(folder.file("a", "x"))});
        ASSERT_TRUE(queues.acceptToken("t"));
    }
};

TEST(EndProcess, returnsTheStatusWhenNothingHoldsTheThread)
{
    Parts parts;
    FakeTransferLink link;
    UploadEngine engine(parts.queues, link, parts.view, parts.clock);
    parts.queueFile();
    engine.initiateUpload();
    EXPECT_EQ(endProcess(parts.bridge, parts.clock, engine, 7), 7);
    EXPECT_FALSE(parts.bridge.runOnMainAndWait([] {}));
}

TEST(EndProcessDeathTest, leavesAThreadThatTheLinkHolds)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            Parts parts;
            LostLink link;
            UploadEngine engine(parts.queues, link, parts.view, parts.clock);
            parts.queueFile();
            engine.initiateUpload();
            link.reached.acquire();
            endProcess(parts.bridge, parts.clock, engine, 143);
        },
        testing::ExitedWithCode(143), "");
}

} // namespace
} // namespace quenmoor
