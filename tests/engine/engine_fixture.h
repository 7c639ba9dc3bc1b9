// An engine over fakes, which a test runs on its own thread.
#pragma once

#include "engine/upload_engine.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <array>

namespace quenmoor {

using Texts = std::vector<std::string>;

struct EngineFixture : testing::Test {
    const TempFolder folder;
    RecordingLog log;
    UploadQueues queues;
    FakeTransferLink link;
    FakeUploadView view;
    FakeClock clock;
    UploadEngine engine{queues, link, view, clock};

    // Creates a file of `size` bytes and queues it. Returns its content.
    std::string queue(const std::string& name, std::size_t size)
    {
        std::string content = sampleContent(size);
        queues.addFiles(std::array{FileUrl::fromPath(folder.file(name, content))});
        EXPECT_TRUE(queues.acceptToken("token"));
        return content;
    }

    // The server already has the first `held` bytes of `content`.
    void serverHolds(const std::string& name, const std::string& content, std::size_t held)
    {
        link.copies[name] = {content.substr(0, held), static_cast<std::int64_t>(content.size())};
    }

    // Runs the engine until the queue is empty, a file is given up or the clock ends.
    Texts run()
    {
        engine.uploadFile();
        return view.statuses(0);
    }
};

} // namespace quenmoor
