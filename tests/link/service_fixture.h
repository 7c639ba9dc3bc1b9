// The engine and the link against the local service, over real UDT and in real time.
#pragma once

#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>

namespace quenmoor {

struct ServiceFixture : testing::Test, LocalService {
    ServiceFixture() { startServer(); }

    const TempFolder folder; // the user's files
    Congestion congestion = kBuiltInCongestion;
    UploadQueues queues;
    FakeUploadView view;
    SystemClock clock;
    std::function<void(const std::string&)> onStatus; // of the first row

    std::string queue(const std::string& name, std::size_t size, const char* token = kToken)
    {
        std::string content = sampleContent(size);
        queues.addFiles(std::array{FileUrl::fromPath(folder.file(name, content))});
        EXPECT_TRUE(queues.acceptToken(token));
        return content;
    }

    // Runs an engine on the queued files; returns once every file has ended or one was given up.
    // Connects to the port `relay` instead
    // of the server's when it is not 0.
    void send(std::uint16_t relay = 0)
    {
        UdtTransferLink link("127.0.0.1", relay != 0 ? relay : server->port(), congestion);
        UploadEngine engine(queues, link, view, clock);
        view.onReload = [this] {
            if (onStatus)
                onStatus(queues.tableList().cell("Status", 0));
            const std::string last =
                queues.tableList().cell("Status", queues.tableList().count() - 1);
            if (queues.uploadCount() == 1 && (last == "Finished" || last == "Canceled"))
                clock.end();
        };
        engine.uploadFile();
    }
};

} // namespace quenmoor
