#include "base/log.h"
#include "tests/fakes/quiet_log.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(Log, keepsTheChannelsSeparateAndTheirBytesUnchanged)
{
    const std::string bytes("local address: \0\x01\xFF", 18);
    const RecordingLog log;
    logSystem("Sending XML: {}", "<a>\n{}</a>");
    logOutput(bytes);
    EXPECT_EQ(log.system(), std::vector<std::string>{"Sending XML: <a>\n{}</a>"});
    EXPECT_EQ(log.output(), std::vector<std::string>{bytes});
}

TEST(Log, writesOutputLinesToStandardOutput)
{
    testing::internal::CaptureStdout();
    logOutput("bind: no such thing");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "bind: no such thing\n");
}

} // namespace
} // namespace quenmoor
