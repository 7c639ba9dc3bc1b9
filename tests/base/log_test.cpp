#include "base/log.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(Log, writesTheBytesOfOutputLinesToStandardOutput)
{
    const std::string bytes("bind: {}\0\x01\xFF", 11);
    testing::internal::CaptureStdout();
    logOutput(bytes);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), bytes + "\n");
}

} // namespace
} // namespace quenmoor
