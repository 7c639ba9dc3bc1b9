#include "tests/fakes/quiet_log.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(Log, printsTextsSafelyAndBytesUnchanged)
{
    const std::string bytes("bind: {}\0\x01\xFF", 11);
    testing::internal::CaptureStdout();
    logOutputBytes(bytes);
    logOutput("received: a\n\x1b[2J\x9B");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), bytes + "\nreceived: a\n\u241B[2J\uFFFD\n");
    const RecordingLog log;
    logSystem("Page title: {}", "a\nquenmoor-upload: forged\x1b");
    EXPECT_EQ(log.system().front(), "Page title: a\u240Aquenmoor-upload: forged\u241B");
}

} // namespace
} // namespace quenmoor
