// Whole uploads over a path that delays, loses, duplicates and reorders packets, and over one that
// is interrupted. Real time.
#include "bench/udp_relay.h"
#include "tests/link/service_fixture.h"

#include <algorithm>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct Relayed : ServiceFixture, testing::WithParamInterface<Congestion> {
    Relayed() { congestion = GetParam(); }
};

TEST_P(Relayed, storesTheFileDespiteLossDuplicationAndReordering)
{
    UdpRelay relay(server->port(), {10ms, 0.01, 100e6, 20ms, 0.01, 0.02});
    const std::string content = queue("clip.mov", 3'000'001);
    send(relay.port());
    EXPECT_EQ(stored("clip.mov"), content);
    const PathCounts counts = relay.stop();
    EXPECT_GT(std::min({counts.retransmitted, counts.duplicated, counts.reordered}), 0);
    EXPECT_GT(counts.dataPackets - counts.retransmitted, 3'000'000 / 1456);
}

TEST_P(Relayed, resumesTheUploadAfterAnInterruptionOfThePath)
{
    // The library takes 12 MB at once; the rest takes long enough for a progress sample.
    UdpRelay relay(server->port(), {5ms, 0, 100e6, 50ms});
    const std::string content = queue("clip.mov", 36'000'000);
    onStatus = [&, failed = false](const std::string& status) mutable {
        failed = failed || status == "Waiting (Error)";
        relay.setCut(!failed && status.starts_with("Uploading at "));
    };
    send(relay.port());
    EXPECT_EQ(stored("clip.mov"), content);
    EXPECT_EQ(std::ranges::count(log.system(), "Sending resume confirmation."), 1);
}

INSTANTIATE_TEST_SUITE_P(Controls, Relayed, testing::Values(Congestion::Library, Congestion::Paced),
                         [](const auto& control) {
                             return control.param == Congestion::Paced ? "paced" : "library";
                         });

} // namespace
} // namespace quenmoor
