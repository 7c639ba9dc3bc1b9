// The local service in this process, and the real engine and link against it. Real time.
#pragma once

#include "devservice/token_store.h"
#include "devservice/transfer_server.h"
#include "devservice/upload_store.h"
#include "engine/system_clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>

namespace quenmoor {

struct ServiceFixture : testing::Test {
    static constexpr const char* kToken = "good-token";

    RecordingLog log;
    const TempFolder folder; // the user's files
    const TempFolder root;   // the server's
    std::string error;
    std::unique_ptr<UploadStore> store = UploadStore::open(root.path(), error);
    TokenStore tokens;
    std::unique_ptr<TransferServer> server;

    ServiceFixture() { tokens.add(kToken); }

    void SetUp() override { startServer(0); }

    void startServer(std::uint16_t port)
    {
        TransferServerSettings settings;
        settings.port = port;
        server = std::make_unique<TransferServer>(settings, *store, tokens);
        ASSERT_TRUE(server->start(error)) << error;
    }

    std::string stored(const std::string& name) const { return contentOf(root.path() / name); }
};

// One engine that has sent what it was given when send() returns.
struct SendingFixture : ServiceFixture {
    Congestion congestion = kBuiltInCongestion;
    UploadQueues queues;
    FakeUploadView view;
    SystemClock clock;
    std::function<void(const std::string&)> onStatus; // of the first row

    SendingFixture() { view.table = &queues.tableList(); }

    std::string queue(const std::string& name, std::size_t size, const char* token = kToken)
    {
        std::string content = sampleContent(size);
        queues.addFiles(std::array{FileUrl::fromPath(folder.file(name, content))});
        EXPECT_TRUE(queues.acceptToken(token));
        return content;
    }

    // Until every file ended, or one was given up. To the server, or by way of `relay`.
    void send(std::uint16_t relay = 0)
    {
        UdtTransferLink link("127.0.0.1", relay != 0 ? relay : server->port(), congestion);
        UploadEngine engine(queues, link, view, clock);
        view.onReload = [this] {
            if (onStatus)
                onStatus(queues.tableList().cell("Status", 0));
            if (queues.uploadCount() == 1 && ended(queues.tableList().count() - 1))
                clock.end();
        };
        engine.uploadFile();
        lastStep = engine.attempt().step;
    }

    bool ended(std::size_t row) const
    {
        const std::string status = queues.tableList().cell("Status", row);
        return status == "Finished" || status == "Canceled";
    }

    AttemptStep lastStep = AttemptStep::Idle;
};

} // namespace quenmoor
