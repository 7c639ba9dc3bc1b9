#include "base/log.h"
#include "tests/fakes/quiet_log.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(Log, keepsTheTwoChannelsApartAndTheirBytesAsTheyAre)
{
    const RecordingLog log;
    logSystem("Sending XML: {}", "<a>\n{}</a>");
    logOutput(std::string("local address: \0\x01\xFF", 18));
    EXPECT_EQ(log.system(), std::vector<std::string>{"Sending XML: <a>\n{}</a>"});
    EXPECT_EQ(log.output(), std::vector<std::string>{std::string("local address: \0\x01\xFF", 18)});
}

TEST(Log, showsNoControlByteThatCouldSteerATerminal)
{
    EXPECT_EQ(printableText("\xE9\x1b[2J\tb\nc\r\x7f"), "\xE9\u241B[2J\tb\nc\u240D\u2421");
}

TEST(Log, writesOutputLinesToStandardOutputFlushed)
{
    testing::internal::CaptureStdout();
    logOutput("bind: no such thing");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "bind: no such thing\n");
}

} // namespace
} // namespace quenmoor
